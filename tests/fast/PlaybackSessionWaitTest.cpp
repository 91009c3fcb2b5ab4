// SPDX-License-Identifier: Apache-2.0

// A session whose reader has no samples at hand: it waits without a thread, and goes on when told.

#include <memory>
#include <vector>

#include "fast/SessionTest.h"

namespace zaffo {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

class PlaybackSessionWaitTest : public SessionTest {
 protected:
  /// The first run has `held` of its `samples`; the layer asks for some as soon as it is asked to.
  void startWith(int held, int samples) {
    const Transcript silence;
    giveSamples(samples);
    scriptReader = [script = scriptReader, held](ScriptedAssetReader& reader) {
      script(reader);
      reader.held = held;
    };
    session = PlaybackSession::create(item, factory());
    session->start(into(reports));
    time.settle();
  }
  void bring(int count) {
    reader().bring(count);
    time.settle();
  }
};

TEST_F(PlaybackSessionWaitTest, ReadsOnWhenSamplesHaveCome) {
  startWith(2, 100);
  EXPECT_EQ(layer().samples.size(), 2u);
  Transcript transcript;
  bring(1);
  EXPECT_THAT(transcript.lines(), ElementsAreArray(numbered({"layer request", " - Reading buffers",
                                                             " - Enqueing buffer at 0.5s",
                                                             "layer enqueue", "layer expects"})));
  const Transcript silence;
  bring(50);
  EXPECT_EQ(layer().samples.size(), 9u) << "two seconds ahead, as it stands";
  EXPECT_FALSE(layer().isAsking());
  bring(1);
  EXPECT_EQ(layer().samples.size(), 9u);
}

TEST_F(PlaybackSessionWaitTest, ItsFirstFrameComesWhenItCan) {
  startWith(0, 100);
  EXPECT_TRUE(layer().samples.empty());
  EXPECT_THAT(reports, testing::ElementsAre(""));
  const Transcript silence;
  bring(2);
  ASSERT_EQ(layer().samples.size(), 2u);
  EXPECT_TRUE(layer().samples[0]->attachments().displayImmediately);
  EXPECT_TRUE(layer().samples[0]->resetsDecoderBeforeDecoding());
  EXPECT_FALSE(layer().samples[1]->attachments().displayImmediately);
}

TEST_F(PlaybackSessionWaitTest, ItsEndIsHeardOfAfterAWait) {
  startWith(2, 3);
  const Transcript silence;
  session->setRate(1);
  bring(100);
  EXPECT_EQ(layer().samples.size(), 3u);
  EXPECT_THAT(ends.heard, IsEmpty());
  time.advance(kNanosecondsPerSecond);
  ASSERT_EQ(ends.heard.size(), 1u);
  EXPECT_EQ(ends.heard[0].name, AVPlayerItemDidPlayToEndTimeNotification);
}

TEST_F(PlaybackSessionWaitTest, ARunThatWasLeftIsNotGoneOnWith) {
  startWith(2, 100);
  const Transcript silence;
  const auto left = readers.back();
  session->seek(seconds(10), nullptr);
  time.settle();
  const auto before = layer().samples.size();
  left->bring(50);
  time.settle();
  EXPECT_EQ(layer().samples.size(), before);
  bring(1);
  EXPECT_EQ(layer().samples.size(), before + 1) << "the new one is";
}

TEST_F(PlaybackSessionWaitTest, OneThatWasStoppedReadsNoMore) {
  startWith(2, 100);
  const Transcript silence;
  const auto left = readers.back();
  session->stop();
  time.settle();
  left->bring(50);
  time.settle();
  EXPECT_EQ(layer().samples.size(), 2u);
  session.reset();
  left->bring(50);
  time.settle();
  EXPECT_EQ(layer().samples.size(), 2u);
}

}  // namespace
}  // namespace zaffo
