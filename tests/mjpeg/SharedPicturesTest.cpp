#include "elements/mjpeg/SharedPictures.h"

#include <atomic>
#include <latch>
#include <thread>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

const WantedOutput kFull = {{}, FourCC_I420};
const WantedOutput kHalf = {{32, 24}, FourCC_I420};
const WantedOutput kQuarter = {{16, 12}, FourCC_I420};

class SharedPicturesTest : public testing::Test {
 protected:
  // Asks for the picture and counts how often it is decoded.
  YuvPictureConstPtr Get(const BufferConstPtr& encoded, const WantedOutput& output,
                         size_t bytes = 1) {
    return pictures_.Get(track_, encoded, output, [this, bytes](const WantedOutputs& outputs) {
      ++decodes_;
      outputs_ = outputs;
      const auto picture = std::make_shared<YuvPicture>();
      picture->bytes = bytes;
      return picture;
    });
  }

  // All these outputs have been asked for before.
  void WarmUp(const WantedOutputs& outputs) {
    for (const WantedOutput& output : outputs)
      Get(NewBuffer({}), output);
    decodes_ = 0;
  }

  SharedPictures pictures_;
  InfoConstPtr track_ = NewTrack();
  std::atomic<int> decodes_ = 0;
  WantedOutputs outputs_;  // of the last decode
};

TEST_F(SharedPicturesTest, OneDecodeServesEveryOutputThatIsExpected) {
  EXPECT_EQ(Get(NewBuffer({}), kFull).use_count(), 1) << "the only output";
  WarmUp({kFull, kHalf, kQuarter});
  const BufferConstPtr encoded = NewBuffer({});
  const std::weak_ptr<const YuvPicture> picture = Get(encoded, kQuarter);
  EXPECT_THAT(outputs_, testing::UnorderedElementsAre(kFull, kHalf, kQuarter));
  EXPECT_EQ(Get(encoded, kFull), picture.lock());
  EXPECT_EQ(Get(encoded, kHalf), picture.lock());
  EXPECT_EQ(decodes_, 1);
  EXPECT_TRUE(picture.expired());
  for (int64_t push = 0; push <= kWantedPushes; ++push)
    Get(NewBuffer({}), kFull);
  const BufferConstPtr last = NewBuffer({});
  EXPECT_EQ(Get(last, kFull).use_count(), 1) << "the others stay away";
}

TEST_F(SharedPicturesTest, PicturesAreToldApartByOwnerNotByAddress) {
  WarmUp({kFull, kHalf});
  const BufferConstPtr storage = NewBuffer({});
  const BufferConstPtr before(std::make_shared<int>(), storage.get());
  const BufferConstPtr after(std::make_shared<int>(), storage.get());
  const YuvPictureConstPtr picture = Get(before, kFull);
  EXPECT_NE(Get(after, kHalf), picture);
  EXPECT_EQ(Get(before, kHalf), picture);
}

TEST_F(SharedPicturesTest, MemoryIsBoundedAndFreedWithTheEncodedPicture) {
  WarmUp({kFull, kHalf});
  const BufferConstPtr first = NewBuffer({}), second = NewBuffer({});
  BufferConstPtr third = NewBuffer({});
  const std::weak_ptr<const YuvPicture> oldest = Get(first, kFull, kMaxSharedPictureMemory / 2);
  Get(second, kFull, kMaxSharedPictureMemory / 2);
  EXPECT_FALSE(oldest.expired());
  const std::weak_ptr<const YuvPicture> youngest = Get(third, kFull, 1);
  EXPECT_TRUE(oldest.expired());
  third.reset();
  Get(first, kFull);
  EXPECT_TRUE(youngest.expired());
}

TEST_F(SharedPicturesTest, WhoComesDuringTheDecodeWaitsForIt) {
  for (const bool fails : {false, true}) {
    WarmUp({kFull, kHalf});
    const BufferConstPtr encoded = NewBuffer({});
    YuvPictureConstPtr picture, other;
    std::jthread otherThread;
    const auto decode = [&](const WantedOutputs&) -> YuvPictureConstPtr {
      std::latch started(1);
      otherThread = std::jthread([&] {
        started.count_down();
        other = Get(encoded, kHalf);
      });
      started.wait();
      return fails ? throw QELRuntimeError("broken") : std::make_shared<YuvPicture>();
    };
    try {
      picture = pictures_.Get(track_, encoded, kFull, decode);
    } catch (const QELRuntimeError&) {
    }
    otherThread.join();
    EXPECT_EQ(decodes_, fails ? 1 : 0);
    EXPECT_TRUE(fails ? other && !picture : other == picture);
  }
}

}  // namespace qel::mjpeg
