#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
#include "Player/QELSampleDecoder.h"

// Every framework and host call of the library throws once, with every kind of exception: locks
// are free afterwards, nothing leaks, and the next call works.
namespace Moravel::Player {

using fake::At;

// What a call of the framework or the host may throw.
struct Failure {
  const char* name;
  std::function<void()> raise;
};
const Failure kFailures[] = {
    {"runtime", [] { throw std::runtime_error("runtime"); }},
    {"framework", [] { throw qel::QELRuntimeError("framework"); }},
    {"other", [] { throw 7; }},
    {"allocation", [] { throw std::bad_alloc(); }},
};

const TrackId kTrack(StorageId("server", 8080), 12);

class ExceptionTest : public fake::LibraryTest {
 protected:
  // Runs `act` with a failure at each of its calls in turn; after each, `check` is told which call
  // failed and whether the failure came out, and then `act` runs undisturbed.
  void FailEachCall(const std::function<void()>& act,
                    const std::function<void(const std::string& call, bool thrown)>& check) {
    for (const auto& [name, raise] : kFailures) {
      for (int at = 0;; ++at) {
        std::string failed;
        framework_.TakeCalls();
        framework_.failAt_ = at;
        framework_.failure_ = [&](const std::string& call) {
          failed = call;
          raise();
        };
        bool thrown = false;
        try {
          act();
        } catch (...) {
          thrown = true;
        }
        framework_.failAt_ = -1;
        if (failed.empty()) {
          ASSERT_GT(at, 0);
          break;
        }
        SCOPED_TRACE(std::string(name) + " from " + failed);
        check(failed, thrown);
        act();
      }
    }
  }

  std::shared_ptr<fake::Source> source_ = std::make_shared<fake::Source>();
};

TEST_F(ExceptionTest, Preload) {
  std::weak_ptr<const qel::ISampleContainer> read;
  source_->read_ = [&] {
    auto container =
        fake::MakeContainer({fake::MakeSample("s", {0})},
                            qel::TimeLimits(qel::MediaTime(qel::EditRate(25, 1), 50, nullptr), 1));
    read = container;
    return container;
  };
  framework_.level_ = orl::mv::logging::ILogger::Level_Trace;
  fake::Queue queue;
  fake::Queues queues;
  QELPreloader preloader;
  preloader.SetStorageSource(kTrack.StorageId(), source_, source_);
  const PreloadOrder order(At(100, 1, 25), SampleRate(25, 1), &queue, kTrack);
  for (fake::Queues* registry : {static_cast<fake::Queues*>(nullptr), &queues}) {
    preloader.SetExistingCacheUpdateQueues(registry);
    auto result = IPreloader::PreloadResult::ERROR;
    size_t delivered = queue.outputs_.size();
    FailEachCall(
        [&] {
          result = IPreloader::PreloadResult::ERROR;
          result = preloader.Preload(order);
          ++delivered;
        },
        [&](const std::string& call, bool thrown) {
          const bool answered = call == "UpdateConfig track_id=12" && !thrown;
          EXPECT_TRUE(thrown || answered);
          delivered -= answered ? 1 : 0;
          EXPECT_EQ(result, IPreloader::PreloadResult::ERROR);
          EXPECT_EQ(queue.outputs_.size(), delivered) << "nothing is handed on";
          EXPECT_TRUE(delivered != 0 || read.expired()) << "the sample is destroyed";
          EXPECT_TRUE(preloader.RemoveStorageSource(kTrack.StorageId())) << "the lock is free";
          preloader.SetStorageSource(kTrack.StorageId(), source_, source_);
        });
    EXPECT_EQ(queue.outputs_.size(), delivered);
  }
}

TEST_F(ExceptionTest, InitSourceAndRemoveTrackId) {
  framework_.factory_ = std::make_shared<qel::ElementFactory<qel::ElementFactoryType_Source>>(
      [this](auto) { return source_; });
  const auto before = std::make_shared<fake::Source>();
  qel::MediaSourcePtr source;
  qel::SourceControlPtr control;
  FailEachCall(
      [&] {
        source = before;
        control = before;
        QELPreloader::InitSource(source, control, kTrack);
      },
      [&](const std::string& call, bool thrown) {
        const bool configuring = call.starts_with("SetInitConfig");
        EXPECT_TRUE(thrown);
        EXPECT_EQ(source, configuring ? source_ : before);
        EXPECT_EQ(control, configuring ? source_ : before);
      });

  QELPreloader preloader;
  preloader.SetStorageSource(kTrack.StorageId(), source_, source_);
  FailEachCall([&] { preloader.RemoveTrackId(kTrack); },
               [&](const std::string&, bool thrown) { EXPECT_TRUE(thrown); });
}

TEST_F(ExceptionTest, SetUpAndDecode) {
  const auto element = std::make_shared<fake::Decoder>();
  framework_.factory_ = std::make_shared<qel::ElementFactory<qel::ElementFactoryType_VideoDecoder>>(
      [&](auto) { return element; });
  source_->output_ = fake::MakeInfoContainer({fake::MakeVideoInfo("video")});
  QELDecoder built;
  FailEachCall(
      [&] {
        built = {};
        QELSampleDecoder::InitJPEGDecoder(source_, built, qel::FourCC_I420);
      },
      [&](const std::string&, bool thrown) {
        EXPECT_TRUE(thrown);
        EXPECT_EQ(built, QELDecoder());
      });

  QELSample sample;
  sample.SetContainer(fake::MakeContainer({fake::MakeSample("s", {0})}));
  DecodeOrder order;
  order.toDecode_ = &sample;
  order.decodeTopField_ = true;
  element->outputs_ = {fake::MakeContainer({fake::MakePicture()})};
  framework_.level_ = orl::mv::logging::ILogger::Level_Trace;
  QELSampleDecoder decoder;
  QELMultiResDecoder dispatcher;
  dispatcher.AddDecoder(0, 0, &decoder);
  const auto decode = [&] { EXPECT_TRUE(std::unique_ptr<ISample>(dispatcher.Decode(order))); };
  FailEachCall([&] { decoder.SetDecoder(built); },
               [&](const std::string&, bool thrown) {
                 EXPECT_TRUE(thrown);
                 EXPECT_THROW(decode(), qel::QELRuntimeError) << "not ready";
               });
  FailEachCall(decode, [&](const std::string&, bool thrown) {
    EXPECT_TRUE(thrown);
    dispatcher.RemoveDecoder(0, 0);  // the lock is free
    dispatcher.AddDecoder(0, 0, &decoder);
  });
  EXPECT_EQ(element->outputs_.front().use_count(), 1) << "every result has been destroyed";
}

}  // namespace Moravel::Player
