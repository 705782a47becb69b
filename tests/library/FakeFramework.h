#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"
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
using Lines = std::vector<LogLine>;

// What the free functions answer from. One for each test; all members but calls_ are set by the
// test before it calls the library.
class Framework {
 public:
  Framework();
  static Framework& Current();

  // Notes a call, and throws when it is the one that shall.
  void Note(const std::string& call);
  std::vector<std::string> TakeCalls();
  void Log(Lines& log, LogLine line);

  int failAt_ = -1;                                  // the call (from 0) that throws, once
  std::function<void(const std::string&)> failure_;  // and what it throws

  std::string missing_;  // the function that has nothing to give
  std::shared_ptr<qel::IElementFactory> factory_;
  std::shared_ptr<qel::ILoggerWriter> writer_;  // notes lines in frameworkLog_; may be replaced

  orl::mv::logging::ILogger::Level level_ = orl::mv::logging::ILogger::Level_Debug;
  bool hasLogger_ = true;

  Lines hostLog_;
  Lines frameworkLog_;

 private:
  std::mutex access_;  // guards calls_ and the logs
  std::vector<std::string> calls_;
  int callCount_ = 0;
};

// A buffer that only knows its sizes, unless it is given bytes.
qel::BufferConstPtr MakeBuffer(uint32_t dataSize, std::string bytes = {});
qel::SampleConstPtr MakeSample(const std::string& streamId, std::vector<int> channels,
                               qel::BufferConstPtr buffer = MakeBuffer(1));
qel::SampleConstPtr MakePicture();
// Times under "StorageTimePoint" when there are limits.
qel::SampleContainerConstPtr MakeContainer(qel::SampleList samples,
                                           std::optional<qel::TimeLimits> limits = {});

qel::InfoConstPtr MakeVideoInfo(const std::string& streamId);
qel::InfoConstPtr MakeSoundInfo(const std::string& streamId);
qel::InfoContainerConstPtr MakeInfoContainer(qel::InfoList infos);

void Note(const std::string& call);
// " key=value" of each that is set.
std::string Text(const qel::ParametersCollectionInstanceConstPtr& config);

class Source : public qel::ISource {
 public:
  void UpdateConfig(qel::ParametersCollectionInstanceConstPtr config) override {
    Note("UpdateConfig" + Text(config));
  }
  qel::MediaTime GotoTimeOffset(const qel::MediaTime& time, std::string stream) override;
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) override {
    Note("SetInitConfig" + Text(config));
  }
  qel::InfoContainerConstPtr GetDefinedOutput(std::string name) override {
    Note("GetDefinedOutput \"" + name + "\"");
    return output_;
  }
  qel::SampleContainerConstPtr GetSample() override {
    Note("GetSample");
    return read_ ? read_() : nullptr;
  }

  qel::InfoContainerConstPtr output_;
  std::function<qel::SampleContainerConstPtr()> read_;
};

class Decoder : public qel::IVideoDecoder {
 public:
  void UpdateConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) override {
    Note("SetInitConfig" + Text(config));
  }
  void DefineInput(qel::InfoContainerConstPtr input, std::string name) override {
    Note("DefineInput \"" + name + "\"");
    input_ = input;
  }
  qel::InfoContainerConstPtr GetDefinedInput(std::string name) override {
    Note("GetDefinedInput \"" + name + "\"");
    return input_;
  }
  void PushSample(qel::SampleContainerConstPtr container) override;
  qel::SampleContainerConstPtr GetSample() override;

  qel::InfoContainerConstPtr input_;
  std::vector<qel::SampleContainerConstPtr> outputs_;  // of every push
  std::function<void(const qel::ISample&)> onPush_ = [](const qel::ISample&) {};

 private:
  std::vector<qel::SampleContainerConstPtr> pending_;
};

// Owns what it is given.
class Queue : public Moravel::Player::CacheUpdateQueue {
 public:
  void Push(const Moravel::Player::Output& output) override {
    Note("Push");
    outputs_.push_back(output);
    samples_.emplace_back(output.sample_);
  }

  std::vector<Moravel::Player::Output> outputs_;

 private:
  std::vector<std::unique_ptr<Moravel::Player::ISample>> samples_;
};

class Queues : public Moravel::Player::ExistingCacheUpdateQueues {
 public:
  bool Exists(Moravel::Player::CacheUpdateQueue*) override {
    Note("Exists");
    return exists_;
  }
  bool PushIfExists(Moravel::Player::CacheUpdateQueue* queue,
                    const Moravel::Player::Output& output) override {
    Note("PushIfExists");
    if (takes_)
      queue->Push(output);
    return takes_;
  }

  bool exists_ = true;
  bool takes_ = true;
};

}  // namespace fake
