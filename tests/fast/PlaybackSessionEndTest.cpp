// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "fast/PlaybackSession.h"
#include "fast/SessionTest.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

class PlaybackSessionEndTest : public SessionTest {
 protected:
  /// A session that plays and has read its three samples, the last of them due half a second on.
  void play() {
    start(3);
    session->setRate(1);
    time.settle();
    ask();
  }
};

TEST_F(PlaybackSessionEndTest, WaitsUntilTheLastSampleIsDueAndThenSaysSoOnTheMainQueue) {
  bool onMain = false;
  const auto token = std::make_shared<int>(0);
  NSNotificationCenter::defaultCenter().addObserver(
      token, AVPlayerItemDidPlayToEndTimeNotification, item,
      [&](const NSNotification&) { onMain = NSThread::isMainThread(); });
  play();
  EXPECT_FALSE(layer().isAsking()) << "reading has stopped";
  time.advance(499 * kMillisecond);
  EXPECT_THAT(ends.heard, IsEmpty());
  EXPECT_EQ(session->rate(), 1);
  time.advance(kMillisecond);
  ASSERT_EQ(ends.heard.size(), 1u);
  EXPECT_EQ(ends.heard[0].name, AVPlayerItemDidPlayToEndTimeNotification);
  EXPECT_EQ(ends.heard[0].object, item);
  EXPECT_TRUE(onMain);
  EXPECT_EQ(session->rate(), 0);
  EXPECT_EQ(session->currentTime(), seconds(0.5));
}

TEST_F(PlaybackSessionEndTest, TheDelayCountsFromThePositionAtTheStartOfTheTurn) {
  start(3);
  session->setRate(1);
  time.advance(200 * kMillisecond);
  layer().onEnqueue = [this] { lastTimebase.lock()->setTime(seconds(0.4)); };
  ask();
  time.advance(299 * kMillisecond);
  EXPECT_THAT(ends.heard, IsEmpty()) << "0.3 s are counted, not the 0.1 s that are left by now";
  time.advance(kMillisecond);
  EXPECT_EQ(ends.heard.size(), 1u);
}

TEST_F(PlaybackSessionEndTest, TheReadAheadCountsFromThePositionAtTheStartOfTheTurn) {
  start();
  layer().onEnqueue = [this] { lastTimebase.lock()->setTime(seconds(1)); };
  ask();
  EXPECT_EQ(layer().samples.back()->presentationTimeStamp(), seconds(2));
}

TEST_F(PlaybackSessionEndTest, WhatIsPastDueIsSaidAtOnce) {
  start(3);
  session->setRate(1);
  time.advance(kNanosecondsPerSecond);
  ask();
  EXPECT_EQ(ends.heard.size(), 1u);
}

TEST_F(PlaybackSessionEndTest, ATracedEndStopsReadingOnce) {
  start(2);
  session->setRate(1);
  time.settle();
  Transcript transcript;
  ask();
  EXPECT_THAT(transcript.lines(),
              ElementsAreArray(
                  numbered({" - Reading buffers", " - Enqueing buffer at 0.25s", "layer enqueue",
                            " - Stop reading buffers (rate: 1.0)", "layer stop requesting"})));
}

TEST_F(PlaybackSessionEndTest, AFailedReaderIsReportedWithItsErrorWhenTheLastSampleIsDue) {
  start(3);
  const auto error = NSError::create("disk", 5);
  reader().statusAtEnd = AVAssetReaderStatus::Failed;
  reader().errorValue = error;
  session->setRate(1);
  time.settle();
  ask();
  time.advance(499 * kMillisecond);
  EXPECT_THAT(ends.heard, IsEmpty());
  time.advance(kMillisecond);
  ASSERT_EQ(ends.heard.size(), 1u);
  const auto& notification = ends.heard[0];
  EXPECT_EQ(notification.name, AVPlayerItemFailedToPlayToEndTimeNotification);
  EXPECT_EQ(notification.object, item);
  EXPECT_EQ(std::any_cast<NSErrorPtr>(
                notification.userInfo.at(AVPlayerItemFailedToPlayToEndTimeErrorKey)),
            error);
  EXPECT_EQ(session->rate(), 0);
}

TEST_F(PlaybackSessionEndTest, ACancelledReaderStopsTheTimebaseAndPostsNothing) {
  start(3);
  reader().statusAtEnd = AVAssetReaderStatus::Cancelled;
  session->setRate(1);
  time.settle();
  ask();
  EXPECT_FALSE(layer().isAsking());
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(ends.heard, IsEmpty());
  EXPECT_EQ(session->rate(), 0);
}

TEST_F(PlaybackSessionEndTest, AnAssetWithoutVideoPostsNothing) {
  copy->trackList.clear();
  start();
  ask();
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(reports, ElementsAre(""));
  EXPECT_THAT(ends.heard, IsEmpty());
}

TEST_F(PlaybackSessionEndTest, AnyOtherErrorEndsTheTurnAndNothingElse) {
  start(3);
  session->setRate(1);
  time.settle();
  reader().onCopy = [] { throw NSErrorException(NSError::create("platform", 1)); };
  ask();
  EXPECT_TRUE(layer().isAsking());
  time.advance(10 * kNanosecondsPerSecond);
  EXPECT_THAT(ends.heard, IsEmpty());
  EXPECT_EQ(session->rate(), 1);
  reader().onCopy = nullptr;
  ask();
  EXPECT_EQ(layer().samples.size(), 3u) << "the next turn reads on";
}

TEST_F(PlaybackSessionEndTest, ASeekDuringTheDelayWithdrawsTheEnd) {
  play();
  time.advance(400 * kMillisecond);
  session->seek(kCMTimeZero, nullptr);
  time.advance(400 * kMillisecond);
  EXPECT_THAT(ends.heard, IsEmpty());
  EXPECT_EQ(session->rate(), 1);
}

TEST_F(PlaybackSessionEndTest, AStopDuringTheDelayWithdrawsTheEnd) {
  play();
  session->stop();
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(ends.heard, IsEmpty());
}

TEST_F(PlaybackSessionEndTest, AReleaseDuringTheDelayWithdrawsTheEnd) {
  play();
  session.reset();
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(ends.heard, IsEmpty());
}

TEST_F(PlaybackSessionEndTest, ASeekAfterTheEndStartsAgainAtTheRateThatIsSet) {
  play();
  time.advance(kNanosecondsPerSecond);
  session->setRate(1);
  session->seek(kCMTimeZero, nullptr);
  time.settle();
  ask();
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(ends.heard.size(), 2u) << "once more";
}

TEST_F(PlaybackSessionEndTest, AnEarlierEndIsLetGoOfAndStillComes) {
  // Read to the end while standing still, and again when it plays: each run to the end counts.
  start(3);
  ask();
  time.advance(100 * kMillisecond);
  session->setRate(1);
  time.settle();
  ask();
  time.advance(399 * kMillisecond);
  EXPECT_THAT(ends.heard, IsEmpty());
  time.advance(kMillisecond);
  EXPECT_EQ(ends.heard.size(), 1u) << "the one of the first run";
  time.advance(100 * kMillisecond);
  EXPECT_EQ(ends.heard.size(), 2u);
}

TEST_F(PlaybackSessionEndTest, NeverLoopsByItself) {
  play();
  time.advance(10 * kNanosecondsPerSecond);
  EXPECT_EQ(readers.size(), 1u);
  EXPECT_EQ(ends.heard.size(), 1u);
}

// Failure of the layer

class PlaybackSessionFailureTest : public PlaybackSessionEndTest {
 protected:
  using Status = AVQueuedSampleBufferRenderingStatus;

  class Delegate final : public PlaybackSessionDelegate {
   public:
    void playbackSession(const std::shared_ptr<PlaybackSession>& session,
                         const NSErrorPtr& why) override {
      std::printf("delegate told, rate %g\n", session->rate());
      errors.push_back(why);
      if (queue) onQueue = queue->isCurrent();
    }
    std::vector<NSErrorPtr> errors;
    DispatchQueuePtr queue;
    bool onQueue = false;
  };

  const std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
  const NSErrorPtr error = NSError::create("decoder", 9);
};

TEST_F(PlaybackSessionFailureTest, StopsReadingTearsDownAndTellsTheDelegateOnTheQueue) {
  start();
  session->setDelegate(delegate);
  EXPECT_EQ(session->delegate(), delegate);
  session->setRate(1);
  time.settle();
  delegate->queue = layer().queue();
  // On the session's queue, so that what the failure puts there waits for the end of this turn.
  layer().onEnqueue = [this] {
    layer().changeStatus(Status::Failed, error);
    std::printf("the change has been told\n");
  };
  Transcript transcript;
  ask();
  auto lines = transcript.lines();
  lines.erase(lines.begin(), lines.begin() + 3);  // the sample
  EXPECT_THAT(lines, ElementsAreArray(
                         numbered({" - Stop reading buffers (rate: 1.0)", "layer stop requesting",
                                   "the change has been told", " - Cancel reading", "reader cancel",
                                   "timebase rate 0 time 0", "delegate told, rate 0"})));
  EXPECT_THAT(delegate->errors, ElementsAre(error));
  EXPECT_TRUE(delegate->onQueue);
}

TEST_F(PlaybackSessionFailureTest, WorksWithoutADelegateAndWithOneThatHasGone) {
  start();
  session->setDelegate(std::make_shared<Delegate>());
  EXPECT_EQ(session->delegate(), nullptr) << "held weakly";
  layer().changeStatus(Status::Failed, error);
  time.settle();
  EXPECT_EQ(reader().statusValue, AVAssetReaderStatus::Cancelled);
}

TEST_F(PlaybackSessionFailureTest, WithoutAnErrorOnTheLayerItIsIgnored) {
  start();
  session->setDelegate(delegate);
  Transcript transcript;
  layer().changeStatus(Status::Failed, nullptr);
  time.settle();
  EXPECT_THAT(transcript.lines(), IsEmpty());
  EXPECT_THAT(delegate->errors, IsEmpty());
}

TEST_F(PlaybackSessionFailureTest, OtherStatusesAreIgnored) {
  start();
  session->setDelegate(delegate);
  Transcript transcript;
  layer().changeStatus(Status::Rendering, error);
  layer().changeStatus(Status::Unknown, error);
  time.settle();
  EXPECT_THAT(transcript.lines(), IsEmpty());
}

TEST_F(PlaybackSessionFailureTest, WithdrawsTheEnd) {
  play();
  layer().changeStatus(Status::Failed, error);
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(ends.heard, IsEmpty());
}

TEST_F(PlaybackSessionFailureTest, ASessionReleasedMeanwhileTellsNobody) {
  start();
  session->setDelegate(delegate);
  // On the session's queue, so that what the failure puts there waits for the end of this turn.
  layer().onEnqueue = [this] {
    if (!session) return;
    layer().changeStatus(Status::Failed, error);
    session.reset();
  };
  ask();
  EXPECT_THAT(delegate->errors, IsEmpty());
  EXPECT_EQ(reader().statusValue, AVAssetReaderStatus::Cancelled);
}

}  // namespace
}  // namespace zaffo
