// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/PictureSupply.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedSampleSource.h"
#include "platform/foundation/AVError.h"
#include "platform/media/Decoding.h"
#include "platform/media/GatedSource.h"

namespace zaffo::media {
namespace {

SeekRequest to(int64_t seconds) {
  return {CMTimeMake(seconds, 1), kCMTimeZero, kCMTimeZero, nullptr};
}

/// The pictures of a source, without a queue around them.
class PictureSupplyTest : public testing::Test {
 protected:
  PictureSupply picturesOf(const std::shared_ptr<SampleSource>& source) {
    return {source, frames_, source->duration()};
  }
  static Outcome search(PictureSupply& pictures) {
    Outcome step = Outcome::Working;
    while (step == Outcome::Working) step = pictures.stepSearch();
    return step;
  }
  /// Finds and shows the frame of a time.
  static void goTo(PictureSupply& pictures, int64_t seconds) {
    pictures.beginSearch(to(seconds));
    ASSERT_EQ(search(pictures), Outcome::Ready);
    pictures.showFound(CMTimeMake(seconds, 1));
  }
  void decodeAhead(PictureSupply& pictures, CMTime now) {
    do {
      pictures.decodeAhead(now, [this] { return superseded_; });
    } while (pictures.isBusy() && !superseded_);
  }

  ManualTime time_;
  std::shared_ptr<FrameStore> frames_ =
      std::make_shared<FrameStore>(CMTimebase::create(CMClockGetHostTimeClock()));
  std::shared_ptr<GatedSource> clip_ =
      std::make_shared<GatedSource>(openClip(test::clip("h264_30.mp4")));
  bool superseded_ = false;
};

TEST_F(PictureSupplyTest, AnItemWithoutPicturesHasFoundAllThereIs) {
  auto pictures = picturesOf(openClip(test::clip("audio_only.m4a")));
  EXPECT_FALSE(pictures.exists());
  pictures.beginSearch(to(1));
  EXPECT_EQ(pictures.stepSearch(), Outcome::Ready);
  EXPECT_TRUE(CMTIME_IS_INVALID(pictures.foundTime()));
  pictures.showFound(CMTimeMake(1, 1));
  EXPECT_FALSE(frames_->hasFrame());
  decodeAhead(pictures, CMTimeMake(1, 1));
  EXPECT_FALSE(pictures.isBusy());
  EXPECT_FALSE(pictures.end());
}

TEST_F(PictureSupplyTest, ShowsWhatItFoundWhenItIsTold) {
  auto pictures = picturesOf(clip_);
  pictures.beginSearch(to(2));
  ASSERT_EQ(search(pictures), Outcome::Ready);
  EXPECT_EQ(pictures.foundTime(), CMTimeMake(2, 1));
  EXPECT_FALSE(frames_->hasFrame());
  pictures.showFound(CMTimeMake(2, 1));
  EXPECT_EQ(frames_->shownTime(), CMTimeMake(2, 1));
  EXPECT_EQ(pictures.endOfLastFrame(), CMTimeMake(61, 30));
}

TEST_F(PictureSupplyTest, TellsWhyThereIsNoFrame) {
  const auto source = std::make_shared<ScriptedSampleSource>();
  source->refusal = makeError(AVErrorUnknown, "scripted");
  auto pictures = picturesOf(source);
  pictures.beginSearch(to(0));
  EXPECT_EQ(search(pictures), Outcome::Error);
  EXPECT_EQ(pictures.error(), source->refusal);
}

TEST_F(PictureSupplyTest, WaitsForASourceThatHasNothingYet) {
  clip_->let(0);
  auto pictures = picturesOf(clip_);
  int ready = 0;
  pictures.setReadyHandler([&ready] { ++ready; });
  pictures.beginSearch(to(0));
  EXPECT_EQ(search(pictures), Outcome::Again);
  clip_->let(1'000'000);
  EXPECT_EQ(ready, 1);
  EXPECT_EQ(search(pictures), Outcome::Ready);
}

TEST_F(PictureSupplyTest, AWayBackToTheFirstFrameNeedsNoSample) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 0);
  goTo(pictures, 2);
  clip_->let(0);
  goTo(pictures, 0);
  EXPECT_EQ(frames_->shownTime(), kCMTimeZero);
}

TEST_F(PictureSupplyTest, DecodesAFewFramesAheadAndNoMore) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 0);
  EXPECT_NE(frames_->bufferAtHostTime(TimeSource::now()), nullptr);
  decodeAhead(pictures, kCMTimeZero);
  EXPECT_EQ(frames_->queued(), DecodeBurst::kManyFrames);
  const int read = clip_->asked(1);
  decodeAhead(pictures, kCMTimeZero);
  EXPECT_EQ(clip_->asked(1), read);
}

TEST_F(PictureSupplyTest, DecodesFurtherAheadWhileNobodyDraws) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 0);
  decodeAhead(pictures, kCMTimeZero);
  EXPECT_EQ(frames_->queued(), DecodeBurst::kManyUnseenFrames);
}

TEST_F(PictureSupplyTest, DecodesNothingOnceSomethingNewerWaits) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 0);
  const int read = clip_->asked(1);
  superseded_ = true;
  decodeAhead(pictures, kCMTimeZero);
  EXPECT_EQ(clip_->asked(1), read);
  EXPECT_EQ(frames_->queued(), 0u);
}

TEST_F(PictureSupplyTest, IsNotBusyWhileTheSourceHasNothing) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 0);
  clip_->let(0);
  pictures.decodeAhead(kCMTimeZero, [] { return false; });
  EXPECT_FALSE(pictures.isBusy());
  EXPECT_FALSE(pictures.end()->isOver);
}

TEST_F(PictureSupplyTest, IsOverWhenTheLastFrameIsDecoded) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 3);
  for (int frame = 90; frame < 120; ++frame) {
    static_cast<void>(frames_->advance(CMTimeMake(frame, 30)));
    decodeAhead(pictures, CMTimeMake(frame, 30));
  }
  ASSERT_TRUE(pictures.end());
  EXPECT_TRUE(pictures.end()->isOver);
  EXPECT_EQ(pictures.end()->end, CMTimeMake(4, 1));
  EXPECT_FALSE(pictures.error());
  pictures.beginSearch(to(0));
  EXPECT_FALSE(pictures.end()->isOver) << "a seek goes on from elsewhere";
}

TEST_F(PictureSupplyTest, NothingIsOnShowOnceItIsClosed) {
  auto pictures = picturesOf(clip_);
  goTo(pictures, 0);
  pictures.close();
  EXPECT_FALSE(frames_->hasFrame());
  EXPECT_FALSE(pictures.exists());
}

}  // namespace
}  // namespace zaffo::media
