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

TEST_F(SharedPicturesTest, OneDecodeServesEveryOutputOnce) {
  WarmUp({kFull, kHalf, kQuarter});
  const BufferConstPtr encoded = NewBuffer({});
  const std::weak_ptr<const YuvPicture> picture = Get(encoded, kQuarter);
  EXPECT_THAT(outputs_, testing::UnorderedElementsAre(kFull, kHalf, kQuarter));
  EXPECT_EQ(Get(encoded, kFull), picture.lock());
  EXPECT_EQ(Get(encoded, kHalf), picture.lock());
  EXPECT_EQ(decodes_, 1);
  EXPECT_TRUE(picture.expired());
}

TEST_F(SharedPicturesTest, NothingIsKeptForTheOnlyOutputOrOneThatStaysAway) {
  EXPECT_EQ(Get(NewBuffer({}), kFull).use_count(), 1);
  Get(NewBuffer({}), kHalf);
  for (int64_t push = 1; push < kWantedPushes; ++push)
    Get(NewBuffer({}), kFull);
  const BufferConstPtr last = NewBuffer({});
  EXPECT_EQ(Get(last, kFull).use_count(), 2);
  const BufferConstPtr tooLate = NewBuffer({});
  EXPECT_EQ(Get(tooLate, kFull).use_count(), 1);
}

TEST_F(SharedPicturesTest, PicturesAreToldApartByOwnerNotByAddress) {
  WarmUp({kFull, kHalf});
  const BufferConstPtr storage = NewBuffer({});
  const BufferConstPtr before(std::make_shared<int>(), storage.get());
  const BufferConstPtr after(std::make_shared<int>(), storage.get());
  const YuvPictureConstPtr picture = Get(before, kFull);
  EXPECT_NE(Get(after, kHalf), picture);
  EXPECT_EQ(Get(before, kHalf), picture);
  track_ = NewTrack();
  EXPECT_EQ(Get(NewBuffer({}), kFull).use_count(), 1) << "another track waits for no outputs";
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
  EXPECT_EQ(decodes_, 4);
  Get(second, kHalf);
  EXPECT_EQ(decodes_, 4);
  EXPECT_EQ(Get(NewBuffer({}), kFull, kMaxSharedPictureMemory + 1).use_count(), 1);
}

TEST_F(SharedPicturesTest, AFailureIsNotKept) {
  WarmUp({kFull, kHalf});
  const BufferConstPtr encoded = NewBuffer({});
  const auto fail = [](const auto&) -> YuvPictureConstPtr { throw QELRuntimeError("broken"); };
  EXPECT_THROW(pictures_.Get(track_, encoded, kFull, fail), QELRuntimeError);
  EXPECT_THROW(pictures_.Get(track_, encoded, kHalf, fail), QELRuntimeError);
  EXPECT_EQ(Get(encoded, kFull), Get(encoded, kHalf));
  EXPECT_EQ(decodes_, 1);
}

TEST_F(SharedPicturesTest, WhoComesDuringTheDecodeWaitsForIt) {
  for (const bool fails : {false, true}) {
    WarmUp({kFull, kHalf});
    const BufferConstPtr encoded = NewBuffer({});
    YuvPictureConstPtr other;
    std::jthread otherThread;
    const auto decode = [&](const WantedOutputs&) -> YuvPictureConstPtr {
      std::latch started(1);
      otherThread = std::jthread([&] {
        started.count_down();
        other = Get(encoded, kHalf);
      });
      started.wait();
      if (fails)
        throw QELRuntimeError("broken");
      return std::make_shared<YuvPicture>();
    };
    YuvPictureConstPtr picture;
    try {
      picture = pictures_.Get(track_, encoded, kFull, decode);
    } catch (const QELRuntimeError&) {
    }
    otherThread.join();
    EXPECT_EQ(decodes_, fails ? 1 : 0);
    EXPECT_TRUE(fails ? other && !picture : other == picture);
  }
}

// Elements share through the store of the process: the grey output is a view of the other's luma.
TEST(SharedDecodeTest, ElementsOfOneTrackShareTheirPictures) {
  const InfoConstPtr track = NewTrack();
  TestDecoder full(track), grey(track, FourCC_Y800), small(track, FourCC_BGRA, 16, 12);
  for (int number = 0; number < 3; ++number) {
    const BufferConstPtr encoded = NewBuffer(MakeJpeg({.number = number}));
    const BufferConstPtr luma = grey.Decode(encoded)->GetData();
    small.Decode(encoded);
    const BufferConstPtr picture = full.Decode(encoded)->GetData();
    EXPECT_EQ(picture->GetInnerBuffer() == luma->GetInnerBuffer(), number > 0);
    EXPECT_EQ(luma->GetDataSize(), 64u * 48);
  }
}

// Each thread makes its sizes of all pictures, side by side with others that do the same, or that
// make the other sizes; a picture must never show another one's number.
TEST(SharedDecodeTest, ThreadsGetTheRightPictures) {
  const InfoConstPtr track = NewTrack();
  std::vector<BufferConstPtr> encoded;
  const auto isBroken = [](int number) { return number % 10 == 9; };
  for (int number = 0; number < 40; ++number)
    encoded.push_back(NewBuffer(isBroken(number) ? Bytes(100, 7) : MakeJpeg({.number = number})));
  const auto work = [&](const std::vector<int>& divisors) {
    std::vector<TestDecoder> decoders;
    for (const int divisor : divisors)
      decoders.emplace_back(track, FourCC_I420, 64 / divisor, 48 / divisor);
    for (int number = 0; number < 40; ++number) {
      for (TestDecoder& decoder : decoders) {
        if (isBroken(number))
          EXPECT_THROW(decoder.Decode(encoded[size_t(number)]), QELRuntimeError);
        else
          EXPECT_EQ(NumberOf(decoder.Decode(encoded[size_t(number)])), number);
      }
    }
  };
  std::vector<std::jthread> threads;
  for (const std::vector<int>& divisors :
       {std::vector{1, 2, 4}, {4, 2, 1}, {1}, {2}, {4}, {1, 2, 4}})
    threads.emplace_back(work, divisors);
}

}  // namespace qel::mjpeg
