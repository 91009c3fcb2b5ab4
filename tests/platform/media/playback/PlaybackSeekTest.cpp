// SPDX-License-Identifier: Apache-2.0

// Seeks and prerolls of a playback whose source keeps it waiting.

#include <optional>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedSampleSource.h"
#include "platform/foundation/AVError.h"
#include "platform/media/Decoding.h"
#include "platform/media/GatedSource.h"
#include "platform/media/output/CapturedOutput.h"
#include "platform/media/playback/Playback.h"

namespace zaffo::media {
namespace {

class PlaybackSeekTest : public testing::Test {
 protected:
  PlaybackSeekTest() { time_.settle(); }
  ~PlaybackSeekTest() override {
    playback_->close();
    time_.settle();
  }

  /// A seek that waits for the source from now on.
  void seekAndWait() {
    source_->let(0);
    playback_->seek(CMTimeMake(3, 2), kCMTimeZero, kCMTimeZero,
                    [this](bool finished) { sought_ = finished; });
    playback_->preroll([this](bool finished) { prerolled_ = finished; });
    time_.settle();
    ASSERT_EQ(sought_, std::nullopt);
    ASSERT_EQ(prerolled_, std::nullopt);
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<GatedSource> source_ =
      std::make_shared<GatedSource>(openClip(test::clip("video_only.mp4")));
  std::shared_ptr<Playback> playback_ = Playback::create(source_, output_, {});
  std::optional<bool> sought_;
  std::optional<bool> prerolled_;
};

TEST_F(PlaybackSeekTest, WhatWaitsForTheSourceFinishesWhenThatHasMore) {
  seekAndWait();
  source_->let(1'000'000);
  time_.settle();
  EXPECT_EQ(sought_, true);
  EXPECT_EQ(prerolled_, true);
}

TEST_F(PlaybackSeekTest, WhatWaitsForTheSourceFailsWhenThePlaybackIsClosed) {
  seekAndWait();
  playback_->close();
  time_.settle();
  EXPECT_EQ(sought_, false);
  EXPECT_EQ(prerolled_, false);
}

TEST_F(PlaybackSeekTest, ASeekThatWaitsForTheSourceFailsAtOnceWhenANewerOneComes) {
  seekAndWait();
  std::optional<bool> newer;
  playback_->seek(kCMTimeZero, kCMTimeZero, kCMTimeZero,
                  [&newer](bool finished) { newer = finished; });
  time_.settle();
  EXPECT_EQ(sought_, false);
  EXPECT_EQ(newer, true);
  EXPECT_EQ(prerolled_, true);
}

TEST_F(PlaybackSeekTest, ALongOneGivesWayToWhatElseIsAskedFor) {
  source_->let(1'000'000);
  int readsAtStart = source_->asked(1), readsAtCancel = 0, readsAtEnd = 0;
  playback_->seek(CMTimeMake(3, 2), kCMTimeZero, kCMTimeZero,
                  [&](bool) { readsAtEnd = source_->asked(1); });
  playback_->preroll([&](bool) { readsAtCancel = source_->asked(1); });
  playback_->cancelPrerolls();
  time_.settle();
  EXPECT_GT(readsAtCancel, readsAtStart) << "the seek has begun";
  EXPECT_LT(readsAtCancel, readsAtEnd) << "and is under way";
}

TEST_F(PlaybackSeekTest, NoTimeIsNoPlaceToGoTo) {
  for (const CMTime time : {kCMTimeInvalid, kCMTimeIndefinite}) {
    std::optional<bool> finished;
    playback_->seek(time, kCMTimeZero, kCMTimeZero, [&](bool result) { finished = result; });
    time_.settle();
    EXPECT_EQ(finished, false);
  }
}

/// A playback whose first frame cannot be had.
class PlaybackFailureTest : public testing::Test {
 protected:
  PlaybackFailureTest() {
    source_->refusal = makeError(AVErrorUnknown, "scripted");
    Playback::Events events;
    events.failed = [this](uint64_t command, const NSErrorPtr& error) {
      EXPECT_EQ(error, source_->refusal);
      commands_.push_back(command);
    };
    playback_ = Playback::create(source_, output_, std::move(events));
  }
  ~PlaybackFailureTest() override {
    playback_->close();
    time_.settle();
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<ScriptedSampleSource> source_ = std::make_shared<ScriptedSampleSource>();
  std::vector<uint64_t> commands_;  ///< those that the failures were told after
  std::shared_ptr<Playback> playback_;
};

TEST_F(PlaybackFailureTest, IsToldOnceAndPrerollsFail) {
  std::optional<bool> early, late;
  playback_->preroll([&early](bool finished) { early = finished; });
  time_.settle();
  playback_->preroll([&late](bool finished) { late = finished; });
  time_.settle();
  EXPECT_EQ(commands_.size(), 1u);
  EXPECT_EQ(early, false);
  EXPECT_EQ(late, false);
}

TEST_F(PlaybackFailureTest, ARateThatCrossesItIsToldOfItAsWell) {
  // The failure comes before the rate is begun: its owner takes it for one of before the rate.
  time_.settle();
  playback_->setRate(1);
  time_.settle();
  ASSERT_EQ(commands_.size(), 2u);
  EXPECT_FALSE(playback_->isLatestCommand(commands_.front()));
  EXPECT_TRUE(playback_->isLatestCommand(commands_.back()));
}

}  // namespace
}  // namespace zaffo::media
