// SPDX-License-Identifier: Apache-2.0

// Seeks that follow one another before what the one before asked for was read, as somebody makes
// them who drags a slider.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "doubles/ManualTime.h"
#include "doubles/TestSeed.h"
#include "fast/PlayerFast.h"
#include "fast/PlayerFastOutputView.h"
#include "fast/QuietTrace.h"
#include "fast/SlowReading.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"

namespace zaffo {
namespace {

constexpr int kFrames = 60;  // that every clip here has at least, 30 a second

class ScrubbingIn : public testing::TestWithParam<const char*> {
 protected:
  ScrubbingIn() {
    const auto path = test::clip(GetParam());
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(path));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    time_.settle();
    item_ = AVPlayerItem::playerItemWithAsset(asset);
  }
  ~ScrubbingIn() override {
    player_.reset();
    time_.settle();
  }

  int below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random_); }

  void load(const PlaybackSessionFactory& factory) {
    player_ = PlayerFast::create(factory);
    player_->loadPlayerItem(item_, [](const NSErrorPtr& error) { EXPECT_FALSE(error); });
    time_.settle();
    ASSERT_EQ(player_->playerItem(), item_);
  }
  void seekToFrame(int frame) {
    player_->seekToTime(CMTimeMake(2 * frame + 1, 60), kCMTimeZero, kCMTimeZero,
                        [](bool) { ADD_FAILURE() << "a seek tells of failures alone"; });
  }
  /// In the midst of reading, wherever that has come to.
  void waitFor(const SlowReading& reading, int samples) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (reading.samples() < samples && std::chrono::steady_clock::now() < giveUp) {
      ASSERT_EQ(player_->playerItem(), item_) << "the item was lost";
      std::this_thread::yield();
    }
    ASSERT_GE(reading.samples(), samples);
    static_cast<void>(MainLoop::runTurn());
  }

  [[nodiscard]] std::optional<int> shown() const {
    const auto view = std::static_pointer_cast<PlayerFastOutputView>(player_->outputView());
    const auto layer = view->sampleBufferDisplayerLayer();
    if (!layer) return std::nullopt;
    layer->setBounds(CGRectMake(0, 0, 192, 108));
    const auto picture = layer->picture(TimeSource::now());
    return picture ? test::frameNumber(picture->buffer) : std::nullopt;
  }
  void expectAlive() {
    ASSERT_EQ(player_->playerItem(), item_) << "the item was lost";
    const int frame = below(kFrames);
    seekToFrame(frame);
    time_.settle();
    ASSERT_EQ(player_->playerItem(), item_) << "the item was lost";
    EXPECT_EQ(shown(), frame);
  }

  const unsigned seed_ = test::testSeed();
  const testing::ScopedTrace trace_{__FILE__, __LINE__, "ZAFFO_TEST_SEED=" + std::to_string(seed_)};
  std::mt19937 random_{seed_};
  const QuietTrace quiet_;
  ManualTime time_;
  std::shared_ptr<AVPlayerItem> item_;
  std::shared_ptr<PlayerFast> player_;
};

TEST_P(ScrubbingIn, AClipThatIsReadSlowlyLosesNothing) {
  const SlowReading reading;
  load(reading.factory());
  for (const float rate : {0.0F, 1.0F}) {
    player_->setRate(rate);
    for (int seek = 0; seek < 12; ++seek) {
      const int before = reading.samples();
      seekToFrame(10 + below(kFrames - 20));
      ASSERT_NO_FATAL_FAILURE(waitFor(reading, before + 1 + below(6)));
      ASSERT_EQ(player_->playerItem(), item_) << "the item was lost at seek " << seek;
    }
  }
  player_->setRate(0);
  expectAlive();
}

TEST_P(ScrubbingIn, AClipThatIsReadAtOnceLosesNothing) {
  load({});
  for (int round = 0; round < 10; ++round) {
    for (int seeks = 1 + below(4); seeks > 0; --seeks) {
      seekToFrame(below(kFrames));
      for (int turns = below(10); turns > 0; --turns) std::this_thread::yield();
    }
    if (below(3) == 0) time_.advance(16 * kNanosecondsPerMillisecond);
    ASSERT_EQ(player_->playerItem(), item_) << "the item was lost in round " << round;
  }
  expectAlive();
}

INSTANTIATE_TEST_SUITE_P(Clips, ScrubbingIn,
                         testing::Values("long_gop.mp4", "h264_30.mp4", "hevc.mp4", "open_gop.mp4"),
                         [](const auto& clip) {
                           const std::string name = clip.param;
                           return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace zaffo
