// SPDX-License-Identifier: Apache-2.0
#include "fast/PlaybackSession.h"

#include <cstdlib>

#include "doubles/BusyPool.h"
#include "fast/SessionTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class PlaybackSessionTest : public SessionTest {};

TEST_F(PlaybackSessionTest, IsMadeWithoutClockTimebaseLayerAndReader) {
  Transcript transcript;
  session = PlaybackSession::create(item, factory());
  time.settle();
  EXPECT_THAT(transcript.lines(), IsEmpty());
  EXPECT_EQ(session->playerItem(), item);
  EXPECT_EQ(session->delegate(), nullptr);
  EXPECT_EQ(session->displayLayer(), nullptr);
  EXPECT_EQ(session->rate(), 0);
  EXPECT_EQ(session->currentTime(), kCMTimeZero);
  EXPECT_EQ(asset->copies, 0);
}

TEST_F(PlaybackSessionTest, CountsItsSessions) {
  const auto first = PlaybackSession::create(item, factory());
  const auto second = PlaybackSession::create(item, factory());
  EXPECT_EQ(second->identifier(), first->identifier() + 1);
}

TEST_F(PlaybackSessionTest, StartsInOrderAndShowsTheFirstFrameAtRateZero) {
  giveSamples(1);
  scriptLayer = [](ScriptedDisplayLayer& layer) { layer.asksAtOnce = false; };
  session = PlaybackSession::create(item, factory());
  Transcript transcript;
  session->start([this](const NSErrorPtr& error) {
    std::printf("completed\n");
    into(reports)(error);
  });
  EXPECT_THAT(
      transcript.lines(),
      ElementsAreArray(numbered(
          {"layer observe status", "layer timebase", " - Setup reader at time 0.0", "reader made",
           "reader time range", "output for track 0", "output copies data: 0",
           "reader can add output", "reader add output", "reader start", "timebase rate 0 time 0",
           "layer flush and remove image", " - Enqueing buffer at 0.0s", "layer enqueue",
           " - Start reading buffers (rate: 0.0)", "layer request", "completed"})));
  EXPECT_THAT(reports, ElementsAre(""));
  EXPECT_EQ(session->displayLayer(), layers.front());
  EXPECT_EQ(layer().controlTimebase(), lastTimebase.lock());
  EXPECT_EQ(layer().queue()->label(), "com.zaffo.PlayerFast.session");
  EXPECT_TRUE(layer().samples.front()->attachments().displayImmediately);
  EXPECT_EQ(session->rate(), 0);
  EXPECT_EQ(session->currentTime(), kCMTimeZero);
}

TEST_F(PlaybackSessionTest, DrivesItsTimebaseFromTheAudioClock) {
  start();
  EXPECT_EQ(lastTimebase.lock()->masterClock(), CMClockGetHostTimeClock());
}

TEST_F(PlaybackSessionTest, ReadsACopyOfTheAssetMadeOnce) {
  start();
  session->seek(seconds(1), nullptr);
  time.settle();
  EXPECT_THAT(readerAssets, ElementsAre(copy, copy));
  EXPECT_EQ(asset->copies, 1);
}

TEST_F(PlaybackSessionTest, WithoutAnAudioClockItFailsToStart) {
  hasClock = false;
  clockStatus = -66681;
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  EXPECT_THAT(reports, ElementsAre("com.zaffoapp.app -66681 Failed to create Audio Clock"));
  EXPECT_THAT(layers, IsEmpty());
  EXPECT_EQ(session->displayLayer(), nullptr);
}

TEST_F(PlaybackSessionTest, WithoutATimebaseItFailsToStart) {
  hasTimebase = false;
  timebaseStatus = -12750;
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  EXPECT_THAT(reports, ElementsAre("com.zaffoapp.app -12750 Failed to create timebase"));
  EXPECT_THAT(layers, IsEmpty());
  EXPECT_THAT(readers, IsEmpty());
}

TEST_F(PlaybackSessionTest, WithoutAReaderItFailsToStartWithThePlatformsError) {
  readerError = NSError::create("platform", 3, {{NSLocalizedDescriptionKey, "no such file"}});
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  EXPECT_THAT(reports, ElementsAre("platform 3 no such file"));
  EXPECT_THAT(layers.front()->samples, IsEmpty());
}

TEST_F(PlaybackSessionTest, AReaderThatHasEndedFailsTheStartWithItsCase) {
  scriptReader = [](ScriptedAssetReader& reader) {
    reader.statusOnceStarted = AVAssetReaderStatus::Completed;
  };
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_THAT(reports[0], testing::StartsWith("ZaffoPlayback.AVAssetReaderExtension.ReadError 2 "));
}

// Reading ahead

TEST_F(PlaybackSessionTest, StandingStillItReadsTwoSecondsAheadAndStopsAsking) {
  giveSamples(100);
  session = PlaybackSession::create(item, factory());
  Transcript transcript;
  session->start(into(reports));
  time.settle();
  const auto lines = transcript.lines();
  // Nine samples of a quarter of a second each: the last begins at 2.0.
  EXPECT_EQ(layer().samples.size(), 9u);
  EXPECT_FALSE(layer().isAsking());
  EXPECT_THAT(
      std::vector(lines.end() - 5, lines.end()),
      ElementsAreArray(numbered({"layer enqueue", " - Enqueing buffer at 2.0s", "layer enqueue",
                                 " - Stop reading buffers (rate: 0.0)", "layer stop requesting"})));
}

TEST_F(PlaybackSessionTest, TheReadAheadCountsFromThePausedPosition) {
  start();
  session->seek(seconds(10), nullptr);
  time.settle();
  ask();
  EXPECT_EQ(layer().samples.back()->presentationTimeStamp(), seconds(12));
  EXPECT_FALSE(layer().isAsking());
}

TEST_F(PlaybackSessionTest, PlayingItFeedsTheLayerAsLongAsItAsks) {
  start();
  session->setRate(1);
  time.settle();
  layer().room = 30;
  Transcript transcript;
  ask();
  EXPECT_EQ(transcript.lines().front(), numbered({" - Reading buffers"}).front());
  EXPECT_EQ(layer().samples.size(), 31u) << "far more than two seconds";
  EXPECT_TRUE(layer().isAsking());
}

TEST_F(PlaybackSessionTest, AFullLayerIsLeftAloneUntilItAsksAgain) {
  start();
  layer().room = 3;
  ask();
  EXPECT_EQ(layer().samples.size(), 4u);
  EXPECT_TRUE(layer().isAsking());
  layer().room = 2;
  ask();
  EXPECT_EQ(layer().samples.size(), 6u);
}

TEST_F(PlaybackSessionTest, RateZeroDoesNotStopReadingByItself) {
  start();
  session->setRate(1);
  time.settle();
  Transcript transcript;
  session->setRate(0);
  time.settle();
  EXPECT_THAT(transcript.lines(), ElementsAre("timebase rate 0 time 0"));
  EXPECT_TRUE(layer().isAsking());
}

TEST_F(PlaybackSessionTest, ARateAboveZeroStartsReadingAgain) {
  giveSamples(100);
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  time.settle();
  layer().asksAtOnce = false;
  Transcript transcript;
  session->setRate(1.5);
  time.settle();
  EXPECT_THAT(transcript.lines(), ElementsAreArray(numbered({"timebase rate 1.5 time 0",
                                                             " - Start reading buffers (rate: 1.5)",
                                                             "layer request"})));
  EXPECT_EQ(session->rate(), 1.5);
}

TEST_F(PlaybackSessionTest, ANegativeRateMovesTheTimebaseAndReadsNothing) {
  giveSamples(100);
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  time.settle();
  Transcript transcript;
  session->setRate(-1);
  time.settle();
  EXPECT_THAT(transcript.lines(), ElementsAre("timebase rate -1 time 0"));
  EXPECT_EQ(session->rate(), -1);
}

TEST_F(PlaybackSessionTest, ReadingThatIsUnderWayIsNotStartedTwice) {
  start();
  Transcript transcript;
  session->setRate(1);
  time.settle();
  EXPECT_THAT(transcript.lines(), ElementsAre("timebase rate 1 time 0"));
}

TEST_F(PlaybackSessionTest, ReadingStoppedFromOutsideEndsTheTurn) {
  start();
  session->setRate(1);
  time.settle();
  layer().onEnqueue = [this] {
    if (layer().samples.size() == 4) {
      layer().changeStatus(AVQueuedSampleBufferRenderingStatus::Failed, NSError::create("d", 1));
    }
  };
  ask();
  EXPECT_EQ(layer().samples.size(), 4u);
}

TEST_F(PlaybackSessionTest, ACallThatComesAfterReadingHasStoppedReadsNothing) {
  start();
  const auto block = layer().lastBlock();
  session->stop();
  time.settle();
  Transcript transcript;
  block();
  EXPECT_THAT(transcript.lines(), ElementsAreArray(numbered({" - Reading buffers"})));
  EXPECT_EQ(layer().samples.size(), 1u);
}

TEST_F(PlaybackSessionTest, ACallThatComesAfterReadingHasStoppedEndsNothing) {
  start();
  const auto block = layer().lastBlock();
  session->stop();
  time.settle();
  session->setRate(-1);  // starts no reading
  block();
  time.advance(3 * kNanosecondsPerSecond);
  EXPECT_EQ(session->rate(), -1);
}

TEST_F(PlaybackSessionTest, ASampleWithoutANumericTimeLeavesTheLastTimeAsItWas) {
  start();
  reader().samples = {makeScriptedSample(kCMTimeZero), makeScriptedSample(seconds(1)),
                      makeScriptedSample(kCMTimeInvalid), makeScriptedSample(kCMTimeIndefinite)};
  session->setRate(1);
  time.settle();
  Transcript transcript;
  ask();
  EXPECT_THAT(transcript.lines(),
              testing::Contains(numbered({" - Enqueing buffer at nans"}).front()));
  time.advance(kNanosecondsPerSecond - 1);
  EXPECT_THAT(ends.heard, IsEmpty()) << "the last time is one second";
  time.advance(2);
  EXPECT_EQ(ends.heard.size(), 1u);
}

TEST_F(PlaybackSessionTest, TheOutputTimeOfASampleIsWhatCounts) {
  start();
  const auto moved = makeScriptedSample(seconds(1));
  moved->setOutputPresentationTimeStamp(seconds(1.5));
  reader().samples = {makeScriptedSample(kCMTimeZero), moved};
  Transcript transcript;
  ask();
  EXPECT_THAT(transcript.lines(),
              testing::Contains(numbered({" - Enqueing buffer at 1.5s"}).front()));
}

// Stopping and going

TEST_F(PlaybackSessionTest, StopTearsTheReaderDownOnItsQueueInOrder) {
  start();
  Transcript transcript;
  session->stop();
  time.settle();
  EXPECT_THAT(transcript.lines(), ElementsAreArray(numbered({" - Cancel reading", "reader cancel",
                                                             " - Stop reading buffers (rate: 0.0)",
                                                             "layer stop requesting"})));
  EXPECT_EQ(session->displayLayer(), layers.front()) << "the layer stays";
  EXPECT_NE(lastTimebase.lock(), nullptr);
}

TEST_F(PlaybackSessionTest, StoppingTwiceDoesNothingMore) {
  start();
  session->stop();
  time.settle();
  Transcript transcript;
  session->stop();
  time.settle();
  EXPECT_THAT(transcript.lines(), IsEmpty());
}

TEST_F(PlaybackSessionTest, StopKeepsTheSessionAliveUntilItHasRun) {
  start();
  bool onQueue = false;
  reader().onCancel = [&] { onQueue = layer().queue()->isCurrent(); };
  const std::weak_ptr<PlaybackSession> weak = session;
  {
    const BusyPool busy;  // what is queued has not begun when the session is let go of
    session->stop();
    session.reset();
    EXPECT_FALSE(weak.expired());
  }
  time.settle();
  EXPECT_TRUE(weak.expired());
  EXPECT_TRUE(onQueue) << "it was the stop that cancelled the reader, and not the release";
}

TEST_F(PlaybackSessionTest, AStoppedSessionCanBeSoughtToGoOn) {
  start();
  session->stop();
  session->seek(seconds(3), into(reports));
  time.settle();
  EXPECT_EQ(readers.size(), 2u);
  EXPECT_TRUE(layer().isAsking());
}

TEST_F(PlaybackSessionTest, AReleasedSessionDetachesItsObserverFirstAndThenEndsReading) {
  start();
  const auto number = std::to_string(session->identifier());
  Transcript transcript;
  session.reset();
  EXPECT_THAT(
      transcript.lines(),
      ElementsAre("layer observe status no more", number + " - Cancel reading", "reader cancel",
                  number + " - Stop reading buffers (rate: 0.0)", "layer stop requesting"));
}

TEST_F(PlaybackSessionTest, NothingHoldsASession) {
  start();
  session->setRate(1);
  session->seek(seconds(1), into(reports));
  time.settle();
  ask();
  EXPECT_EQ(session.use_count(), 1);
}

TEST_F(PlaybackSessionTest, AReleasedSessionIsNeverCalledBack) {
  start();
  const auto block = layer().lastBlock();
  const std::weak_ptr<PlaybackSession> weak = session;
  {
    const BusyPool busy;  // what is queued has not begun when the session goes
    session->setRate(1);
    session->seek(seconds(1), into(reports));
    session.reset();
    EXPECT_TRUE(weak.expired()) << "what is queued holds it weakly";
  }
  reports.clear();
  readerError = NSError::create("platform", 3);
  time.settle();
  layer().changeStatus(AVQueuedSampleBufferRenderingStatus::Failed, NSError::create("d", 1));
  block();
  time.advance(10 * kNanosecondsPerSecond);
  EXPECT_EQ(readers.size(), 1u);
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_THAT(ends.heard, IsEmpty());
}

TEST_F(PlaybackSessionTest, ReleasingASessionThatWasNeverStartedDoesNothing) {
  session = PlaybackSession::create(item, factory());
  Transcript transcript;
  session->stop();
  session.reset();
  time.settle();
  EXPECT_THAT(transcript.lines(), IsEmpty());
}

using PlaybackSessionDeathTest = PlaybackSessionTest;

TEST_F(PlaybackSessionDeathTest, ARateBeforeTheStartIsAProgrammingFault) {
  session = PlaybackSession::create(item, factory());
  EXPECT_DEATH(session->setRate(1), "before it was started");
}

TEST_F(PlaybackSessionDeathTest, TheFirstOfAProcessIsNumberNought) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a process that has made none
  EXPECT_EXIT(std::_Exit(static_cast<int>(PlaybackSession::create(item, factory())->identifier())),
              testing::ExitedWithCode(0), "");
}

TEST_F(PlaybackSessionDeathTest, ASeekBeforeTheStartIsAProgrammingFault) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // it dies on a worker, which a fork has not
  EXPECT_DEATH(
      {
        giveSamples(1);
        session = PlaybackSession::create(item, factory());
        session->seek(kCMTimeZero, nullptr);
        time.settle();
      },
      "before it was started");
}

}  // namespace
}  // namespace zaffo
