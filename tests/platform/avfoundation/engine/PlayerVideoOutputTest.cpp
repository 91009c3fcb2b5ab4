// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PlayerVideoOutput.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

class PlayerVideoOutputTest : public testing::Test {
 protected:
  [[nodiscard]] static std::shared_ptr<media::FrameStore> framesWith(CVPixelBufferPtr buffer) {
    auto frames =
        std::make_shared<media::FrameStore>(CMTimebase::create(CMClockGetHostTimeClock()));
    frames->show({std::move(buffer), kCMTimeZero, CMTimeMake(1, 30)});
    return frames;
  }

  ManualTime time_;
  PlayerVideoOutput output_;
};

TEST_F(PlayerVideoOutputTest, HasNoPictureWithoutAnItem) {
  EXPECT_FALSE(output_.hasPicture());
  EXPECT_FALSE(output_.pictureAtHostTime(TimeSource::now()).buffer);
  EXPECT_EQ(output_.droppedFrames(), 0u);
}

TEST_F(PlayerVideoOutputTest, ShowsTheItemThatItWasGivenLast) {
  const auto first = std::make_shared<CVPixelBuffer>(), second = std::make_shared<CVPixelBuffer>();
  constexpr CGAffineTransform kTurn{0, 1, -1, 0, 0, 0};
  output_.attach(framesWith(first), CGAffineTransformIdentity);
  EXPECT_EQ(output_.pictureAtHostTime(TimeSource::now()).buffer, first);
  output_.attach(framesWith(second), kTurn);
  const auto shown = output_.pictureAtHostTime(TimeSource::now());
  EXPECT_EQ(shown.buffer, second);
  EXPECT_EQ(shown.preferredTransform, kTurn);
  output_.attach(nullptr, CGAffineTransformIdentity);
  EXPECT_FALSE(output_.hasPicture());
}

TEST_F(PlayerVideoOutputTest, EachItemHasANumberOfItsOwnAndSoHasNone) {
  std::vector<uint64_t> numbers{output_.itemGeneration()};
  for (const auto& frames :
       {framesWith(nullptr), std::shared_ptr<media::FrameStore>(), framesWith(nullptr)}) {
    output_.attach(frames, CGAffineTransformIdentity);
    for (const uint64_t before : numbers) EXPECT_NE(output_.itemGeneration(), before);
    numbers.push_back(output_.itemGeneration());
    EXPECT_EQ(output_.pictureAtHostTime(0).itemGeneration, numbers.back());
  }
}

TEST_F(PlayerVideoOutputTest, KnowsWhenTheNextPictureOfItsItemIsDue) {
  EXPECT_EQ(output_.planNextPicture(), std::nullopt);
  const auto frames = framesWith(std::make_shared<CVPixelBuffer>());
  frames->push({std::make_shared<CVPixelBuffer>(), CMTimeMake(1, 30), CMTimeMake(1, 30)});
  const auto timebase = CMTimebase::create(CMClockGetHostTimeClock());
  timebase->setRate(1);
  frames->setTimebase(timebase);
  output_.attach(frames, CGAffineTransformIdentity);
  const auto next = output_.planNextPicture();
  ASSERT_TRUE(next);
  EXPECT_NEAR(static_cast<double>(*next - TimeSource::now()), 1e9 / 30, 1e4);
}

TEST_F(PlayerVideoOutputTest, TellsItsObserversOfPicturesAndOfOtherItems) {
  int first = 0, second = 0;
  const auto one = output_.observePictures([&first] { ++first; });
  auto other = output_.observePictures([&second] { ++second; });
  output_.pictureChanged();
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
  other.reset();
  output_.attach(nullptr, CGAffineTransformIdentity);
  EXPECT_EQ(first, 2);
  EXPECT_EQ(second, 1) << "its token was dropped";
}

TEST_F(PlayerVideoOutputTest, AnObserverMayEndItsObservationWhileItIsTold) {
  int calls = 0;
  std::shared_ptr<void> token;
  token = output_.observePictures([&] {
    ++calls;
    token.reset();
  });
  output_.pictureChanged();
  output_.pictureChanged();
  EXPECT_EQ(calls, 1);
}

TEST_F(PlayerVideoOutputTest, ObserversComeAndGoWhilePicturesChange) {
  std::atomic<bool> done{false};
  std::thread pictures([&] {
    while (!done.load()) output_.pictureChanged();
  });
  std::atomic<int> calls{0};
  for (int i = 0; i < 500; ++i) {
    const auto token = output_.observePictures([&calls] { ++calls; });
    std::this_thread::yield();
  }
  done.store(true);
  pictures.join();
  const int before = calls;
  output_.pictureChanged();
  EXPECT_EQ(calls, before) << "all of them are gone";
}

}  // namespace
}  // namespace zaffo
