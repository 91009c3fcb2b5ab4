// Seeks and prerolls of a playback whose source keeps it waiting.

#include <optional>

#include "doubles/ManualTime.h"
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

}  // namespace
}  // namespace zaffo::media
