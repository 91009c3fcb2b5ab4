// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/FrameStore.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"

namespace zaffo::media {
namespace {

VideoFrame frameAt(int64_t tenths) {
  auto buffer = std::make_shared<CVPixelBuffer>();
  return {std::move(buffer), CMTimeMake(tenths, 10), CMTimeMake(1, 10)};
}

class FrameStoreTest : public testing::Test {
 protected:
  [[nodiscard]] CVPixelBufferPtr drawn() { return store_.bufferAtHostTime(TimeSource::now()); }

  ManualTime time_;
  std::shared_ptr<CMTimebase> timebase_ = CMTimebase::create(CMClockGetHostTimeClock());
  FrameStore store_{timebase_};
};

TEST_F(FrameStoreTest, ShowsNothingBeforeItsFirstFrame) {
  EXPECT_FALSE(store_.hasFrame());
  EXPECT_EQ(drawn(), nullptr);
}

TEST_F(FrameStoreTest, KeepsTheFrameOnShowWhileTimeStandsStill) {
  const VideoFrame first = frameAt(0);
  store_.show(first);
  store_.push(frameAt(1));
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(drawn(), first.buffer);
}

TEST_F(FrameStoreTest, GivesEachFrameFromItsPresentationTimeOn) {
  const VideoFrame first = frameAt(0), second = frameAt(1);
  store_.show(first);
  store_.push(second);
  timebase_->setRate(1);
  time_.advance(100 * kNanosecondsPerMillisecond - 1);
  EXPECT_EQ(drawn(), first.buffer);
  time_.advance(1);
  EXPECT_EQ(drawn(), second.buffer);
}

TEST_F(FrameStoreTest, AdvanceTellsWhetherAnotherFrameIsDue) {
  store_.show(frameAt(0));
  store_.push(frameAt(1));
  EXPECT_FALSE(store_.advance(CMTimeMake(99, 1000)));
  EXPECT_TRUE(store_.advance(CMTimeMake(100, 1000)));
  EXPECT_FALSE(store_.advance(CMTimeMake(101, 1000)));
  EXPECT_EQ(store_.queued(), 0u);
}

TEST_F(FrameStoreTest, CountsFramesPassedOverAsDroppedOnlyOnceSomebodyDraws) {
  for (int i = 0; i < 4; ++i) store_.push(frameAt(i));
  store_.advance(CMTimeMake(3, 10));
  EXPECT_EQ(store_.droppedFrames(), 0u);
  EXPECT_NE(drawn(), nullptr);
  for (int i = 4; i < 8; ++i) store_.push(frameAt(i));
  store_.advance(CMTimeMake(7, 10));
  EXPECT_EQ(store_.droppedFrames(), 3u);
}

TEST_F(FrameStoreTest, WakesForEachFrameWhileSomebodyDrawsAndForTheLastFewOtherwise) {
  store_.show(frameAt(0));
  for (int i = 1; i <= 4; ++i) store_.push(frameAt(i));
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(3, 10));
  int began = 0;
  store_.setDrawingHandler([&began] { ++began; });
  EXPECT_NE(drawn(), nullptr);
  EXPECT_NE(drawn(), nullptr);
  EXPECT_EQ(began, 1);
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(1, 10));
}

class PlannedDrawingTest : public FrameStoreTest {
 protected:
  /// Draws the first of five frames while the timebase runs, and says when it comes for the next.
  [[nodiscard]] int64_t beginDrawing() {
    timebase_->setRate(1);
    store_.show(frameAt(0));
    for (int i = 1; i <= 4; ++i) store_.push(frameAt(i));
    EXPECT_NE(drawn(), nullptr);
    const auto next = store_.planNextDraw();
    EXPECT_TRUE(next);
    return next.value_or(0);
  }
  void advanceTo(int64_t host) { time_.advance(host - TimeSource::now()); }
};

TEST_F(PlannedDrawingTest, ComesJustAfterTheNextFrameIsDue) {
  const int64_t start = TimeSource::now();
  const int64_t next = beginDrawing();
  EXPECT_GE(next, start + 100 * kNanosecondsPerMillisecond);
  EXPECT_LT(next, start + 101 * kNanosecondsPerMillisecond);
}

TEST_F(PlannedDrawingTest, NobodyElseWakesForAFrameThatWhoeverDrawsComesFor) {
  const int64_t next = beginDrawing();
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(3, 10));
  advanceTo(next);
  EXPECT_FALSE(store_.advance(CMTimeMake(1, 10))) << "it is about to come";
  EXPECT_EQ(store_.shownTime(), CMTimeMake(1, 10));
}

TEST_F(PlannedDrawingTest, IsToldOfAFrameThatItFailedToComeFor) {
  advanceTo(beginDrawing() + 10 * kNanosecondsPerMillisecond);
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(1, 10));
  EXPECT_TRUE(store_.advance(CMTimeMake(1, 10)));
}

TEST_F(PlannedDrawingTest, IsToldOfAFrameThatComesEarlierThanItKnew) {
  static_cast<void>(beginDrawing());
  timebase_->setRate(2);
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(1, 10));
  time_.advance(50 * kNanosecondsPerMillisecond);
  EXPECT_TRUE(store_.advance(CMTimeMake(1, 10)));
}

TEST_F(PlannedDrawingTest, IsToldOfAFrameThatTookThePlaceOfAllOthers) {
  static_cast<void>(beginDrawing());
  store_.show(frameAt(5));
  store_.push(frameAt(6));
  store_.push(frameAt(7));
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(6, 10));
}

TEST_F(PlannedDrawingTest, KnowsNoTimeWhileNoFrameWaitsOrTimeStandsStill) {
  store_.show(frameAt(0));
  timebase_->setRate(1);
  EXPECT_EQ(store_.planNextDraw(), std::nullopt);
  timebase_->setRate(0);
  store_.push(frameAt(1));
  store_.push(frameAt(2));
  EXPECT_NE(drawn(), nullptr);
  EXPECT_EQ(store_.planNextDraw(), std::nullopt);
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(1, 10));
}

TEST_F(PlannedDrawingTest, KnowsNoTimeForAFrameThatLiesBehindTheTimebase) {
  time_.advance(kNanosecondsPerSecond);
  timebase_->setTime(CMTimeMake(5, 10));
  timebase_->setRate(-1);
  store_.show(frameAt(5));
  store_.push(frameAt(6));
  EXPECT_NE(drawn(), nullptr);
  EXPECT_EQ(store_.planNextDraw(), std::nullopt);
}

TEST_F(FrameStoreTest, ADrawingThatEndedIsNotHeldToDropFrames) {
  store_.show(frameAt(0));
  EXPECT_NE(drawn(), nullptr);
  for (int i = 1; i < 60; ++i) store_.push(frameAt(i));
  store_.advance(CMTimeMake(50, 10));
  EXPECT_EQ(store_.droppedFrames(), 0u);
  EXPECT_EQ(store_.nextWake(1), CMTimeMake(58, 10));
  int began = 0;
  store_.setDrawingHandler([&began] { ++began; });
  EXPECT_NE(drawn(), nullptr);
  EXPECT_EQ(began, 1);
}

TEST_F(FrameStoreTest, AFrameThatWasDrawnIsNotDropped) {
  store_.show(frameAt(0));
  EXPECT_NE(drawn(), nullptr);
  store_.push(frameAt(1));
  store_.advance(CMTimeMake(1, 10));
  EXPECT_NE(drawn(), nullptr);
  EXPECT_EQ(store_.droppedFrames(), 0u);
}

TEST_F(FrameStoreTest, ShowForgetsWhatWasQueued) {
  store_.show(frameAt(0));
  store_.push(frameAt(1));
  const VideoFrame other = frameAt(20);
  store_.show(other);
  EXPECT_EQ(store_.queued(), 0u);
  EXPECT_EQ(store_.nextWake(0), std::nullopt);
  EXPECT_EQ(drawn(), other.buffer);
}

TEST_F(FrameStoreTest, LetsGoOfFramesThatWereReplaced) {
  VideoFrame first = frameAt(0);
  const std::weak_ptr<const CVPixelBuffer> weak = first.buffer;
  store_.show(std::move(first));
  store_.show(frameAt(1));
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace zaffo::media
