// SPDX-License-Identifier: Apache-2.0

// Fast players of real clips that cannot be decoded.

#include <algorithm>

#include "fast/FastTest.h"
#include "fast/PlayerFast.h"
#include "media/Clips.h"

namespace zaffo {
namespace {

class PlayerFastFailureTest : public testing::Test {
 protected:
  std::shared_ptr<AVPlayerItem> itemAt(const std::string& path) {
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(path));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    time.settle();
    return AVPlayerItem::playerItemWithAsset(asset);
  }

  ManualTime time;
  std::shared_ptr<PlayerFast> player = PlayerFast::create();
};

TEST_F(PlayerFastFailureTest, AClipThatCannotBeDecodedCostsTheItemHoweverSoonItsLayerFails) {
  const auto item = itemAt(test::clip("no_key_frame.mp4"));
  Transcript transcript;
  int loads = 0;
  player->loadPlayerItem(item, [&](const NSErrorPtr& error) {
    EXPECT_FALSE(error);
    EXPECT_TRUE(player->playerItem()) << "the failure is told no sooner than the load";
    ++loads;
  });
  dispatch_wait_until_idle();  // the layer has failed before the session has anyone to tell
  time.settle();
  EXPECT_EQ(loads, 1);
  EXPECT_FALSE(player->playerItem());
  const auto lines = transcript.lines();
  EXPECT_EQ(std::ranges::count_if(
                lines, [](const std::string& line) { return line.starts_with("PlayerFast: "); }),
            1);
}

}  // namespace
}  // namespace zaffo
