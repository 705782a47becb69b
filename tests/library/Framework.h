#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"
#include "logging/ILogger.h"
#include "qel/QELRuntimeError.h"
#include "qelCore/LoggerWriter.h"
#include "qelCore/ParameterPrototype.h"
#include "qelCore/Registry.h"
#include "qelCore/SampleFactory.h"
#include "qelCore/StreamInfos.h"

// The library over the framework's real core, with elements, queues and logs of the test's own:
// what they are asked is noted in order, and any call of them, or any allocation, can fail.
namespace Moravel::Test {

using Lines = std::vector<std::pair<int, std::string>>;  // level and text
using orl::mv::logging::ILogger;
using Config = qel::ParametersCollectionInstanceConstPtr;

class LibraryTest : public testing::Test, public qel::ILoggerWriter {
 public:
  LibraryTest();
  ~LibraryTest() override { qel::SetCurrentLoggerWriter(nullptr); }

  void Note(const std::string& call);
  std::vector<std::string> TakeCalls() { return std::exchange(calls_, {}); }
  void WriteLog(qel::LogLevel level, const char* message, const char* context, const char* file,
                const char*, const char*, const char*, const char*) override;

  ILogger::Level level_ = ILogger::Level_Debug;
  bool hasLogger_ = true;
  Lines hostLog_, frameworkLog_;
  std::function<void()> onLog_ = [] {};
  int failingCall_ = -1;  // counts down to the call that throws, once
  std::function<void(const std::string&)> onCall_ = [](const std::string&) {};

 protected:
  // A failed check: the error that `act` throws, and its one line.
  void ExpectCheck(const std::string& text, const std::function<void()>& act);
  // Fails each call and each allocation of `act` in turn; `check` is told whether it threw, and
  // then it runs undisturbed.
  void FailEach(const std::function<void()>& act, const std::function<void(bool thrown)>& check);

 private:
  std::mutex access_;  // guards calls_
  std::vector<std::string> calls_;
};

void Note(const std::string& call);
// " key=value" of each of the keys that is set.
std::string Text(const Config& config, std::initializer_list<const char*> keys);
// The text of the error that `act` throws; with "std " in front when it is none of the framework.
std::string ErrorOf(const std::function<void()>& act);

inline Time::TimePoint At(uint64_t count, uint64_t a, uint64_t b) {
  return Time::TimePoint().FromRatio(count, a, b);
}
inline qel::InfoConstPtr Info(const std::string& stream) {
  return std::make_shared<qel::VideoInfo>(stream, 0, 0, 0, qel::EditRate(25, 1));
}
inline qel::BufferConstPtr Buffer(uint32_t size) {
  return std::make_shared<qel::BufferView>(nullptr, nullptr, size);
}
inline qel::SampleConstPtr Sample(const std::string& stream, int channel,
                                  qel::BufferConstPtr data = Buffer(1)) {
  return qel::CreateSample(Info(stream), qel::CreateChannelInfo(channel), std::move(data));
}
// A read of a source: two units of 1001/30000 s from the 50th on.
inline qel::SampleContainerConstPtr Read(qel::SampleList samples) {
  const qel::MediaTime start(qel::EditRate(30000, 1001), 50, nullptr);
  return qel::CreateSampleContainer(std::move(samples), {{"StorageTimePoint", {start, 2}}});
}

struct Source : qel::ISource {
  void UpdateConfig(Config config) override {
    Note("UpdateConfig" + Text(config, {"track_id", "remove_track"}));
  }
  qel::MediaTime GotoTimeOffset(const qel::MediaTime& time, std::string stream) override {
    const auto& [numerator, denominator] = time.GetEditRate();
    Note("GotoTimeOffset " + std::to_string(time.GetTimeNumber()) + "@" +
         std::to_string(numerator) + "/" + std::to_string(denominator) + " " + stream);
    return time;
  }
  void SetInitConfig(Config config) override {
    Note("SetInitConfig " + config->GetParamUTF8String("tcp_address").value() +
         config->GetParamUTF8String("unix_domain_socket").value() +
         Text(config, {"tcp_port", "track_id"}));
  }
  qel::InfoContainerConstPtr GetDefinedOutput(std::string name) override {
    Note("GetDefinedOutput" + name);
    return output_;
  }
  qel::SampleContainerConstPtr GetSample() override {
    Note("GetSample");
    return read_();
  }

  qel::InfoContainerConstPtr output_;
  std::function<qel::SampleContainerConstPtr()> read_ = [] { return nullptr; };
};

struct Decoder : qel::IVideoDecoder {
  void UpdateConfig(Config) override {}
  void SetInitConfig(Config config) override {
    Note("SetInitConfig " + std::to_string(config->GetParamFourCC("OutputFourCC").value()));
  }
  void DefineInput(qel::InfoContainerConstPtr input, std::string name) override {
    Note("DefineInput " + input->GetInfoList().at(0)->GetStreamId() + name);
    input_ = std::move(input);
  }
  qel::InfoContainerConstPtr GetDefinedInput(std::string) override {
    Note("GetDefinedInput");
    return input_;
  }
  void PushSample(qel::SampleContainerConstPtr container) override {
    const qel::SampleConstPtr sample = container->GetAllSamples().front();
    Note("PushSample " + sample->GetStreamId());
    onPush_(*sample);
    pulls_ = 0;
  }
  qel::SampleContainerConstPtr GetSample() override {
    Note("GetSample");
    return pulls_ < outputs_.size() ? outputs_[pulls_++] : nullptr;
  }

  qel::InfoContainerConstPtr input_ = qel::CreateInfoContainer(Info("input"), nullptr);
  std::vector<qel::SampleContainerConstPtr> outputs_;  // of every push
  size_t pulls_ = 0;
  std::function<void(const qel::ISample&)> onPush_ = [](const qel::ISample&) {};
};

// Registers what ImplementElement makes under the library's names.
template <typename Element, auto kind = std::is_same_v<Element, Source>
                                            ? qel::ElementFactoryType_Source
                                            : qel::ElementFactoryType_VideoDecoder>
void Register(std::shared_ptr<Element> made, bool hasPrototypes = true) {
  using Prototype = qel::ParametersCollectionPrototype;
  using enum Prototype::Type;
  constexpr bool isSource = std::is_same_v<Element, Source>;
  // One for both configurations of both elements.
  const auto all =
      std::make_shared<Prototype>(Prototype::ParameterMap{{"tcp_address", {UTF8String}},
                                                          {"unix_domain_socket", {UTF8String}},
                                                          {"tcp_port", {Int64}},
                                                          {"track_id", {Int64}},
                                                          {"remove_track", {Int64}},
                                                          {"OutputFourCC", {FourCC}}});
  qel::RegisterElement(
      isSource ? "qel.StorageSource" : "qel", isSource ? "storage" : "video.mjpeg",
      {std::make_shared<qel::ElementFactory<kind>>([made](const auto&) { return made; }),
       all->CreateInstance(), hasPrototypes ? all : nullptr, hasPrototypes ? all : nullptr});
}

// A queue that owns what it is given, and the registry of it.
struct Queue : Player::CacheUpdateQueue, Player::ExistingCacheUpdateQueues {
  void Push(const Player::Output& output) override {
    Note("Push");
    outputs_.reserve(outputs_.size() + 1);
    outputs_.emplace_back(output.tp_, output.sample_);
  }
  bool Exists(Player::CacheUpdateQueue*) override {
    Note("Exists");
    return exists_;
  }
  bool PushIfExists(Player::CacheUpdateQueue* queue, const Player::Output& output) override {
    Note("PushIfExists");
    if (takes_)
      queue->Push(output);
    return takes_;
  }

  bool exists_ = true, takes_ = true;
  std::vector<std::pair<Time::TimePoint, std::unique_ptr<Player::ISample>>> outputs_;
};

}  // namespace Moravel::Test
