// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVPlayerLayer.h"

#include "platform/avfoundation/PlayerFixture.h"

namespace zaffo {
namespace {

class AVPlayerLayerTest : public PlayerFixture {
 protected:
  AVPlayerLayerTest() {
    layer_->setPlayer(player_);
    layer_->setBounds(CGRectMake(0, 0, 400, 400));
    root_->addSublayer(layer_);
    root_->setDisplayRequestHandler([this] { ++requests_; });
  }

  [[nodiscard]] std::optional<LayerPicture> draw() { return layer_->picture(TimeSource::now()); }

  std::shared_ptr<CALayer> root_ = CALayer::create();
  std::shared_ptr<AVPlayerLayer> layer_ = AVPlayerLayer::create();
  int requests_ = 0;
};

TEST_F(AVPlayerLayerTest, KeepsTheAspectByDefault) {
  EXPECT_EQ(layer_->videoGravity(), AVLayerVideoGravityResizeAspect);
}

TEST_F(AVPlayerLayerTest, FitsFillsOrStretchesThePictureByItsGravity) {
  open("h264_30.mp4");  // 192 x 108
  ASSERT_TRUE(draw());
  const CGRect whole = draw()->destination;
  EXPECT_NEAR(whole.origin.y, 87.5, 1e-9);
  EXPECT_NEAR(whole.size.width, 400, 1e-9);
  EXPECT_NEAR(whole.size.height, 225, 1e-9);
  layer_->setVideoGravity(AVLayerVideoGravityResize);
  EXPECT_EQ(draw()->destination, CGRectMake(0, 0, 400, 400));
  layer_->setVideoGravity(AVLayerVideoGravityResizeAspectFill);
  const CGRect filled = draw()->destination;
  EXPECT_NEAR(filled.size.width, 400 * 192 / 108.0, 1e-9);
  EXPECT_EQ(filled.size.height, 400);
  EXPECT_NEAR(filled.origin.x, (400 - filled.size.width) / 2, 1e-9);
}

TEST_F(AVPlayerLayerTest, TurnsThePictureUprightByTheTrackTransform) {
  // The recordings say how far to turn counter-clockwise by the clip's name.
  for (const auto& [name, turns] : {std::pair{"portrait.mp4", 0}, {"rotated_180.mp4", 2}}) {
    open(name);
    ASSERT_TRUE(draw()) << name;
    EXPECT_EQ(draw()->quarterTurns, turns) << name;
    EXPECT_FALSE(draw()->mirrored) << name;
    EXPECT_GT(draw()->destination.size.height, draw()->destination.size.width) << name;
  }
  open("rotated_90.mp4");
  const int turned90 = draw()->quarterTurns;
  EXPECT_GT(draw()->destination.size.width, draw()->destination.size.height);
  open("rotated_270.mp4");
  EXPECT_EQ((turned90 + draw()->quarterTurns) % 4, 0);
  EXPECT_EQ(turned90 % 2, 1);
}

TEST_F(AVPlayerLayerTest, CountsWidePixels) {
  open("anamorphic.mp4");
  const CGRect destination = draw()->destination;
  EXPECT_NEAR(destination.size.width / destination.size.height, 192 * 4 / 3.0 / 108, 1e-6);
}

TEST_F(AVPlayerLayerTest, AsksForADrawWhenThereIsANewPicture) {
  open("h264_30.mp4");
  EXPECT_GT(requests_, 0);
  ASSERT_TRUE(draw());
  player_->setRate(1);
  time_.settle();
  for (int frame = 0; frame < 5; ++frame) {
    requests_ = 0;
    time_.advance(100 * kNanosecondsPerMillisecond);
    EXPECT_EQ(requests_, 1) << "once between two draws";
    ASSERT_TRUE(draw());
  }
}

TEST_F(AVPlayerLayerTest, ALayerThatNobodyDrawsAsksOnlyOnce) {
  open("h264_30.mp4");
  requests_ = 0;
  player_->setRate(1);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_LE(requests_, 1);
}

TEST_F(AVPlayerLayerTest, AWindowThatComesByItselfSeesEachPictureInTimeAndIsHardlyAsked) {
  open("h264_30.mp4");
  ASSERT_TRUE(draw());
  player_->setRate(1);
  time_.advance(100 * kNanosecondsPerMillisecond);
  ASSERT_TRUE(draw());
  auto next = layer_->nextPictureTime();
  int frame = shown().value_or(-1);
  requests_ = 0;
  constexpr int kFrames = 45;
  for (int i = 0; i < kFrames; ++i) {
    ASSERT_TRUE(next) << "after frame " << frame;
    time_.advance(*next - TimeSource::now());
    ASSERT_TRUE(draw());
    EXPECT_EQ(shown(), ++frame);
    next = layer_->nextPictureTime();
  }
  EXPECT_LE(requests_, 1) << "the first one, which it did not know of";
  EXPECT_EQ(layer_->droppedFrames(), 0u);
}

TEST_F(AVPlayerLayerTest, AsksAWindowThatStaysAway) {
  open("h264_30.mp4");
  ASSERT_TRUE(draw());
  player_->setRate(1);
  time_.advance(100 * kNanosecondsPerMillisecond);
  ASSERT_TRUE(draw());
  ASSERT_TRUE(layer_->nextPictureTime());
  requests_ = 0;
  time_.advance(200 * kNanosecondsPerMillisecond);
  EXPECT_EQ(requests_, 1);
}

TEST_F(AVPlayerLayerTest, IsReadyForDisplayFromTheFirstFrameOfItsItem) {
  EXPECT_FALSE(layer_->isReadyForDisplay());
  open("h264_30.mp4");
  EXPECT_TRUE(layer_->isReadyForDisplay());
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  EXPECT_FALSE(layer_->isReadyForDisplay());
}

TEST_F(AVPlayerLayerTest, TellsWhenTheItemWasFirstPutOnScreen) {
  open("h264_30.mp4");
  EXPECT_EQ(layer_->firstPresentedHostTime(), 0);
  const auto picture = draw();
  const int64_t presentedAt = TimeSource::now();
  layer_->didPresent(picture->buffer, presentedAt);
  EXPECT_EQ(layer_->firstPresentedHostTime(), presentedAt);
  EXPECT_EQ(layer_->presentedFrames(), 1u);
  layer_->didPresent(picture->buffer, presentedAt + 5);
  EXPECT_EQ(layer_->presentedFrames(), 1u) << "the same picture again is no new frame";

  player_->replaceCurrentItemWithPlayerItem(loadedItem("video_only.mp4"));
  EXPECT_EQ(layer_->firstPresentedHostTime(), 0) << "of the present item";
  layer_->didPresent(picture->buffer, presentedAt + 9);
  EXPECT_EQ(layer_->firstPresentedHostTime(), 0) << "a late word of the old item does not count";
}

TEST_F(AVPlayerLayerTest, ShowsNothingWithoutAPlayer) {
  open("h264_30.mp4");
  layer_->setPlayer(nullptr);
  EXPECT_FALSE(draw());
  EXPECT_FALSE(layer_->isReadyForDisplay());
  EXPECT_EQ(layer_->droppedFrames(), 0u);
}

}  // namespace
}  // namespace zaffo
