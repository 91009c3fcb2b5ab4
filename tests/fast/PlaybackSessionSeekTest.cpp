// SPDX-License-Identifier: Apache-2.0
#include "fast/PlaybackSession.h"
#include "fast/SessionTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class PlaybackSessionSeekTest : public SessionTest {
 protected:
  PlaybackSessionSeekTest() { reports.clear(); }
};

TEST_F(PlaybackSessionSeekTest, StopsReadingAtOnceAndSetsUpANewReaderOnTheQueue) {
  start();
  session->setRate(1.5);
  time.settle();
  Transcript transcript;
  session->seek(seconds(0.5), into(reports));
  time.settle();
  EXPECT_THAT(transcript.lines(), ElementsAreArray(numbered({" - Stop reading buffers (rate: 1.5)",
                                                             "layer stop requesting",
                                                             " - Cancel reading",
                                                             "reader cancel",
                                                             " - Setup reader at time 0.5",
                                                             "reader made",
                                                             "reader time range",
                                                             "output for track 0",
                                                             "output copies data: 0",
                                                             "reader can add output",
                                                             "reader add output",
                                                             "reader start",
                                                             "timebase rate 0 time 0",
                                                             "timebase rate 0 time 0.5",
                                                             "layer flush and remove image",
                                                             " - Enqueing buffer at 0.5s",
                                                             "layer enqueue",
                                                             " - Start reading buffers (rate: 0.0)",
                                                             "layer request",
                                                             "timebase rate 1.5 time 0.5"})));
}

TEST_F(PlaybackSessionSeekTest, NeverReportsASuccess) {
  start();
  reports.clear();
  session->seek(seconds(1), into(reports));
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_EQ(session->currentTime(), seconds(1));
}

TEST_F(PlaybackSessionSeekTest, ShowsTheTargetFrameAtOnceAlsoWhileStandingStill) {
  start();
  session->seek(seconds(1), nullptr);
  time.settle();
  ASSERT_EQ(layer().samples.size(), 2u);
  EXPECT_TRUE(layer().samples[1]->attachments().displayImmediately);
  EXPECT_TRUE(layer().samples[1]->resetsDecoderBeforeDecoding());
  EXPECT_EQ(session->rate(), 0);
}

TEST_F(PlaybackSessionSeekTest, GoesOnAtTheRateFromBefore) {
  start();
  session->setRate(2);
  session->seek(seconds(1), nullptr);
  time.settle();
  EXPECT_EQ(session->rate(), 2);
  session->setRate(-0.5);
  session->seek(seconds(1), nullptr);
  time.settle();
  EXPECT_EQ(session->rate(), -0.5);
}

TEST_F(PlaybackSessionSeekTest, AFailureIsReportedOnTheQueueAndTheRateIsNotRestored) {
  start();
  session->setRate(1);
  time.settle();
  readerError = NSError::create("platform", 3, {{NSLocalizedDescriptionKey, "gone"}});
  bool onQueue = false;
  Transcript transcript;
  session->seek(seconds(1), [&](const NSErrorPtr& error) {
    onQueue = layer().queue()->isCurrent();
    into(reports)(error);
  });
  time.settle();
  EXPECT_THAT(reports, ElementsAre("", "platform 3 gone"));
  EXPECT_TRUE(onQueue);
  // The timebase is not even touched: it was the new reader that failed.
  EXPECT_THAT(
      transcript.lines(),
      ElementsAreArray(numbered({" - Stop reading buffers (rate: 1.0)", "layer stop requesting",
                                 " - Cancel reading", "reader cancel",
                                 " - Setup reader at time 1.0", "reader made"})));
  EXPECT_FALSE(layer().isAsking());
}

TEST_F(PlaybackSessionSeekTest, AFailureWithNobodyToTellIsLeftAtThat) {
  start();
  readerError = NSError::create("platform", 3);
  session->seek(seconds(1), nullptr);
  time.settle();
  EXPECT_FALSE(layer().isAsking());
}

TEST_F(PlaybackSessionSeekTest, AReaderThatEndsAtOnceFailsTheSeekWithItsCase) {
  start();
  scriptReader = [](ScriptedAssetReader& reader) {
    reader.statusOnceStarted = AVAssetReaderStatus::Cancelled;
  };
  reports.clear();
  session->seek(seconds(1), into(reports));
  time.settle();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_THAT(reports[0], testing::StartsWith("ZaffoPlayback.AVAssetReaderExtension.ReadError 1 "));
}

TEST_F(PlaybackSessionSeekTest, AnErrorOfTheFirstSampleIsLeftToReading) {
  start(0);
  EXPECT_THAT(reports, ElementsAre("")) << "the start succeeds all the same";
  EXPECT_TRUE(layer().isAsking());
  ask();
  EXPECT_FALSE(layer().isAsking());
  EXPECT_EQ(ends.heard.size(), 1u);
}

TEST_F(PlaybackSessionSeekTest, AFailureOfTheFirstSampleIsSaidWhenItIsReadAgain) {
  start();
  const auto error = NSError::create("disk", 5);
  scriptReader = [&](ScriptedAssetReader& reader) {
    reader.statusAtEnd = AVAssetReaderStatus::Failed;
    reader.errorValue = error;
  };
  reports.clear();
  session->seek(seconds(1), into(reports));
  time.settle();
  EXPECT_THAT(reports, IsEmpty()) << "the seek succeeds all the same";
  EXPECT_THAT(ends.heard, IsEmpty());
  ask();
  ASSERT_EQ(ends.heard.size(), 1u);
  EXPECT_EQ(ends.heard[0].name, AVPlayerItemFailedToPlayToEndTimeNotification);
}

TEST_F(PlaybackSessionSeekTest, AnErrorOfAnyOtherKindAtTheFirstSampleIsLeftToReadingToo) {
  giveSamples(3);
  const auto giving = scriptReader;
  scriptReader = [&](ScriptedAssetReader& reader) {
    giving(reader);
    reader.onCopy = [&reader] {
      if (reader.copies == 1) throw NSErrorException(NSError::create("platform", 1));
    };
  };
  scriptLayer = [](ScriptedDisplayLayer& layer) { layer.asksAtOnce = false; };
  session = PlaybackSession::create(item, factory());
  session->start(into(reports));
  EXPECT_THAT(reports, ElementsAre("")) << "the start succeeds all the same";
  EXPECT_THAT(layer().samples, IsEmpty());
  ask();
  EXPECT_EQ(layer().samples.size(), 3u);
  session->seek(seconds(1), into(reports));
  time.settle();
  EXPECT_EQ(layer().samples.size(), 3u);
  ask();
  EXPECT_EQ(layer().samples.size(), 6u);
  EXPECT_THAT(reports, ElementsAre(""));
}

TEST_F(PlaybackSessionSeekTest, SeeksInARowEndAtTheLastOne) {
  start();
  session->setRate(1);
  for (const double target : {1.0, 2.0, 3.0}) session->seek(seconds(target), into(reports));
  time.settle();
  EXPECT_EQ(session->currentTime(), seconds(3));
  EXPECT_EQ(session->rate(), 1);
  EXPECT_EQ(readers.size(), 4u);
}

TEST_F(PlaybackSessionSeekTest, TheLastTimeRestartsAtTheTarget) {
  start();
  ask();
  EXPECT_EQ(layer().samples.back()->presentationTimeStamp(), seconds(2));
  giveSamples(0);
  session->seek(seconds(1), nullptr);
  time.settle();
  ask();
  // The run has no sample: it ends at its target, however far the one before it had come.
  EXPECT_EQ(ends.heard.size(), 1u);
}

}  // namespace
}  // namespace zaffo
