// SPDX-License-Identifier: Apache-2.0

// What a fast player shows, as it is drawn.

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "doubles/MainLoopUntil.h"
#include "doubles/ManualTime.h"
#include "fast/QuietTrace.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/window/Window.h"

namespace zaffo::feed {
namespace {

constexpr int kFrames = 120;  // of h264_30.mp4, 30 a second, B frames among them
constexpr int64_t kFrame = kNanosecondsPerSecond / 30;

/// A player of that clip in a window that is drawn offscreen, in time that is moved by hand.
class FastRenderingTest : public testing::Test {
 protected:
  void SetUp() override {
    Window::Options options;
    options.size = {192, 108};
    options.offscreen = true;
    NSErrorPtr error;
    window = Window::create(options, &error);
    ASSERT_TRUE(window) << error->localizedDescription();
    const auto asset =
        AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(test::clip("h264_30.mp4")));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    time.settle();
    const auto view = player->outputView();
    view->setFrame({{0, 0}, window->size()});
    window->rootView()->addSubview(view);
    player->loadPlayerItem(AVPlayerItem::playerItemWithAsset(asset), {});
    time.settle();
    ASSERT_TRUE(player->playerItem());
  }
  void TearDown() override {
    player->fullTeardown();
    time.settle();
  }

  void seek(CMTime target) {
    player->seekToTime(target, kCMTimeZero, kCMTimeZero, {});
    time.settle();
  }
  /// The number of the frame in what is drawn now; -1 when it has none.
  int drawn() {
    std::optional<CGImagePtr> image;
    window->snapshot([&image](const CGImagePtr& made) { image = made; });
    EXPECT_TRUE(runMainLoopUntil([&image] { return image.has_value(); }, 20'000'000'000));
    return image ? test::frameNumber(*image).value_or(-1) : -1;
  }

  const QuietTrace quiet;
  ManualTime time;
  std::shared_ptr<Window> window;
  std::shared_ptr<PlayerFast> player = PlayerFast::create();
};

TEST_F(FastRenderingTest, TheFirstFrameIsDrawnAfterTheLoad) {
  EXPECT_EQ(drawn(), 0);
}

TEST_F(FastRenderingTest, TheVeryFrameIsDrawnAfterASeekToEach) {
  for (int frame = kFrames - 1; frame >= 0; --frame) {
    seek(CMTimeMake(frame, 30));
    EXPECT_EQ(drawn(), frame);
  }
}

TEST_F(FastRenderingTest, TheFrameThatIsDueIsDrawnAfterAChangeOfTheRate) {
  player->setRate(0.5f);
  time.advance(10 * kFrame + kFrame / 2);
  EXPECT_EQ(drawn(), 5);
  player->setRate(2);
  time.advance(10 * kFrame);
  EXPECT_EQ(drawn(), 25);
  player->setRate(0);
  time.advance(10 * kFrame);
  EXPECT_EQ(drawn(), 25);
}

TEST_F(FastRenderingTest, TheLastFrameIsDrawnAtTheEnd) {
  player->setRate(1);
  time.advance(6 * kNanosecondsPerSecond);
  EXPECT_EQ(player->rate(), 0);
  EXPECT_EQ(drawn(), kFrames - 1);
}

}  // namespace
}  // namespace zaffo::feed
