// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <future>
#include <optional>

#include "doubles/MainLoopUntil.h"
#include "doubles/TestVideo.h"
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"
#include "media/Clips.h"
#include "native/AVPlayerLayerContainer.h"
#include "platform/avfoundation/AVAudioSession.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"

namespace zaffo {
namespace {

constexpr int64_t kPatience = 20'000'000'000;

/// The pool with its own players over real clips.
class PlayerManagerRealMediaTest : public testing::Test {
 protected:
  PlayerManagerRealMediaTest() {
    AVAudioSession::sharedInstance().setOutput(AVAudioSession::Output::None);
  }

  static std::shared_ptr<AVPlayerItem> itemOf(const std::string& name) {
    std::promise<std::shared_ptr<AVPlayerItem>> loaded;
    ZFSingleLoopVideoPlayerItemLoader::createWithURL(NSURL::fileURLWithPath(test::clip(name)))
        ->loadAVPlayerItemWithOptions({}, [&](std::shared_ptr<AVPlayerItem> item, double, double) {
          loaded.set_value(std::move(item));
        });
    return loaded.get_future().get();
  }

  std::optional<PlayerLoadResult> load(const std::string& id, const std::string& clip) {
    auto result = std::make_shared<std::optional<PlayerLoadResult>>();
    manager->loadPlayer(std::make_shared<TestVideo>(id), itemOf(clip), {},
                        [result](const PlayerLoadResult& told) { *result = told; });
    EXPECT_TRUE(runMainLoopUntil([result] { return result->has_value(); }, kPatience));
    return *result;
  }

  std::shared_ptr<PlayerManager> manager = PlayerManager::create();
};

TEST_F(PlayerManagerRealMediaTest, LoadsPlaysParksAndAnswersTheNextRequestAtOnce) {
  auto first = load("a", "portrait.mp4");
  ASSERT_TRUE(first && first->player());
  first->player()->setRate(1);
  EXPECT_TRUE(runMainLoopUntil([&] { return first->player()->currentTime() > CMTimeMake(1, 10); },
                               kPatience));
  first->player()->setRate(0);
  const auto inner = first->player()->innerPlayer();
  first.reset();
  EXPECT_EQ(manager->debugDescription(), "Player 0 - videoId: a, state: Loaded, activeUses: 0");
  EXPECT_TRUE(runMainLoopUntil([&] { return inner->currentTime() == kCMTimeZero; }, kPatience))
      << "an idle player is rewound";

  bool answeredInside = false;
  manager->loadPlayer(std::make_shared<TestVideo>("a"), itemOf("portrait.mp4"), {},
                      [&](const PlayerLoadResult& told) {
                        answeredInside = told.player() && told.player()->innerPlayer() == inner;
                      });
  EXPECT_TRUE(answeredInside);
}

TEST_F(PlayerManagerRealMediaTest, LendsTheLayerOfALoadedVideo) {
  const auto loaded = load("a", "portrait.mp4");
  ASSERT_TRUE(loaded && loaded->player());
  const auto container =
      manager->playerLayerContainerForVideo(std::make_shared<TestVideo>("a"), {});
  ASSERT_TRUE(container);
  EXPECT_NE(container->playerLayer(), nullptr);
}

TEST_F(PlayerManagerRealMediaTest, AQuickSwitchLeavesOnlyTheLastVideoLoaded) {
  manager->setMaxPlayersAtIdleState(1);
  int firstSuccesses = 0;
  manager->loadPlayer(
      std::make_shared<TestVideo>("a"), itemOf("portrait.mp4"), {},
      [&](const PlayerLoadResult& told) { firstSuccesses += told.success() ? 1 : 0; });
  const auto second = load("b", "h264_30.mp4");
  ASSERT_TRUE(second && second->player());
  EXPECT_EQ(firstSuccesses, 0);
  EXPECT_EQ(manager->playerState(std::make_shared<TestVideo>("b")), PlayerState::Loaded);
  EXPECT_EQ(manager->playerState(std::make_shared<TestVideo>("a")), PlayerState::NotLoaded);
}

TEST_F(PlayerManagerRealMediaTest, TheLoadOfWhatTheHeaderTellsNotToBePlayableCarriesTheError) {
  for (const bool fast : {false, true}) {
    manager->setUseFastPlayer(fast);
    for (const auto& [name, code] : {std::pair{"protected.mp4", AVErrorContentIsProtected},
                                     {"protected_with_sound.mp4", AVErrorContentIsProtected},
                                     {"unknown_codec.mp4", AVErrorDecoderNotFound},
                                     {"unknown_codec_with_sound.mp4", AVErrorDecoderNotFound}}) {
      const auto loaded = load(name, name);
      ASSERT_TRUE(loaded && loaded->error()) << name << (fast ? ", fast" : "");
      EXPECT_EQ(loaded->error()->code(), code) << name;
      EXPECT_FALSE(loaded->error()->localizedDescription().empty()) << name;
    }
    manager->removeAllPlayers();
  }
}

/// A load ends well whatever its preroll said; by then the item tells.
TEST_F(PlayerManagerRealMediaTest, AnItemWithoutAPictureToDecodeIsHandedOutWithItsErrorInIt) {
  for (const char* way : {"cold", "warm"}) {
    SCOPED_TRACE(way);
    const auto loaded = load("a", "no_key_frame.mp4");
    ASSERT_TRUE(loaded && loaded->player());
    const auto item = loaded->player()->playerItem();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->status(), AVPlayerItemStatus::Failed);
    ASSERT_NE(item->error(), nullptr);
    EXPECT_FALSE(item->error()->localizedDescription().empty());
    loaded->player()->setRate(1);
    EXPECT_EQ(loaded->player()->rate(), 0);
  }
}

TEST_F(PlayerManagerRealMediaTest, AMediaServicesResetLeavesHandlesWithoutAPlayer) {
  const auto loaded = load("a", "portrait.mp4");
  ASSERT_TRUE(loaded && loaded->player());
  AVAudioSession::sharedInstance().resetMediaServices();
  EXPECT_EQ(manager->debugDescription(), "");
  EXPECT_EQ(loaded->player()->innerPlayer(), nullptr);
}

}  // namespace
}  // namespace zaffo
