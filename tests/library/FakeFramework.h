#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "logging/ILogger.h"
#include "qel/ElementFactory.h"
#include "qel/Logging.h"
#include "qel/Samples.h"

// A framework and a host under full control of the test: every call is noted in order, and any of
// them can be made to throw. It stands in for the libraries at link time.
namespace fake {

struct LogLine {
  int level;
  std::string text;
  std::string file;

  bool operator==(const LogLine&) const = default;
};

// What the free functions answer from. One for each test; all members but calls_ are set by the
// test before it calls the library.
class Framework {
 public:
  Framework();
  ~Framework();
  static Framework& Current();

  // Notes a call, and throws when it is the one that shall.
  void Note(const std::string& call);
  std::vector<std::string> TakeCalls();
  void LogHost(LogLine line);
  void LogFramework(LogLine line);

  int failAt_ = -1;                                  // the call (from 0) that throws, once
  std::function<void(const std::string&)> failure_;  // and what it throws

  bool initPrototype_ = true;
  bool updatePrototype_ = true;
  bool manifest_ = true;
  bool wrapperGivesElement_ = true;
  std::shared_ptr<qel::IElementFactory> factory_;
  std::shared_ptr<qel::ILoggerWriter> writer_;  // notes lines in frameworkLog_; may be replaced

  orl::mv::logging::ILogger::Level level_ = orl::mv::logging::ILogger::Level_Debug;
  bool hasLogger_ = true;

  std::vector<LogLine> hostLog_;
  std::vector<LogLine> frameworkLog_;

 private:
  std::mutex access_;  // guards calls_ and the logs
  std::vector<std::string> calls_;
  int callCount_ = 0;
};

// A buffer that only knows its sizes, unless it is given bytes.
qel::BufferConstPtr MakeBuffer(uint32_t dataSize, std::string bytes = {});
qel::SampleConstPtr MakeSample(const std::string& streamId, std::vector<int> channels,
                               qel::BufferConstPtr buffer);
qel::SampleConstPtr MakePicture();
// Times under "StorageTimePoint" when there are limits.
qel::SampleContainerConstPtr MakeContainer(qel::SampleList samples,
                                           std::optional<qel::TimeLimits> limits = {});

// A stream, of video or of something else.
qel::InfoConstPtr MakeInfo(const std::string& streamId, bool video = true);
qel::InfoContainerConstPtr MakeInfoContainer(qel::InfoList infos);

class Source : public qel::ISource {
 public:
  void UpdateConfig(qel::ParametersCollectionInstanceConstPtr config) override;
  qel::MediaTime GotoTimeOffset(const qel::MediaTime& time, std::string stream) override;
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) override;
  qel::InfoContainerConstPtr GetDefinedOutput(std::string name) override;
  qel::SampleContainerConstPtr GetSample() override;

  qel::InfoContainerConstPtr output_;
  std::function<qel::SampleContainerConstPtr()> read_;
};

class Decoder : public qel::IVideoDecoder {
 public:
  void UpdateConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) override;
  void DefineInput(qel::InfoContainerConstPtr input, std::string name) override;
  qel::InfoContainerConstPtr GetDefinedInput(std::string name) override;
  void PushSample(qel::SampleContainerConstPtr container) override;
  qel::SampleContainerConstPtr GetSample() override;

  qel::InfoContainerConstPtr input_;
  std::vector<qel::SampleContainerConstPtr> outputs_;  // of every push
  std::function<void(const qel::ISample&)> onPush_ = [](const qel::ISample&) {};

 private:
  std::vector<qel::SampleContainerConstPtr> pending_;
};

// Owns what it is given; notes it as "Push".
class Queue : public Moravel::Player::CacheUpdateQueue {
 public:
  ~Queue() override;
  void Push(const Moravel::Player::Output& output) override;

  std::vector<Moravel::Player::Output> outputs_;
};

class Queues : public Moravel::Player::ExistingCacheUpdateQueues {
 public:
  bool Exists(Moravel::Player::CacheUpdateQueue* queue) override;
  bool PushIfExists(Moravel::Player::CacheUpdateQueue* queue,
                    const Moravel::Player::Output& output) override;

  bool exists_ = true;
  bool takes_ = true;
};

}  // namespace fake
