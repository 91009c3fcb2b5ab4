// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "doubles/ManualTime.h"
#include "doubles/TestVideo.h"
#include "loading/ZFLoopingVideoPlayerItemLoader.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"

namespace zaffo {

/// A loop of a real clip, made by the loader and played by a pooled player, with time moved by
/// hand.
class LoopFixture : public testing::Test {
 protected:
  static constexpr double kTrim = 0.05;

  /// The sound output of the process comes to rest while time can still move.
  ~LoopFixture() override {
    player.reset();
    manager.reset();
    time.advance(kNanosecondsPerSecond);
  }

  /// Whether the loader gave an item.
  bool load(const std::string& name, AVPlayerItemLoaderOptions options = {}) {
    return loadFile(test::clip(name), options);
  }
  bool loadFile(const std::string& path, AVPlayerItemLoaderOptions options = {}) {
    ZFLoopingVideoPlayerItemLoader::createWithURL(NSURL::fileURLWithPath(path))
        ->loadAVPlayerItemWithOptions(
            options, [this](std::shared_ptr<AVPlayerItem> loaded, double loop, double total) {
              item = std::move(loaded);
              loopSeconds = loop;
              totalSeconds = total;
            });
    time.settle();
    return item != nullptr;
  }

  /// Lends a player that stands at the start of the loop; false when it cannot be loaded.
  bool lend(PlayerManager::PlayerKind kind) {
    manager->setUseFastPlayer(kind == PlayerManager::PlayerKind::Fast);
    manager->loadPlayer(std::make_shared<TestVideo>("loop"), item, {},
                        [this](const PlayerLoadResult& result) { player = result.player(); });
    time.settle();
    time.advance(200 * kNanosecondsPerMillisecond);  // past a poll
    return player != nullptr;
  }

  /// Plays to the moment at which media time begins to move; false when it never does.
  bool start() {
    player->setRate(1);
    time.settle();
    for (int i = 0; i < 2000 && seconds() <= 0; ++i) time.advance(kNanosecondsPerMillisecond);
    return seconds() > 0;
  }

  /// The position in the loop's item, and that on the clip's own time line.
  [[nodiscard]] double seconds() const { return CMTimeGetSeconds(player->currentTime()); }
  [[nodiscard]] double clipSeconds() const { return std::fmod(seconds(), loopSeconds) + kTrim; }

  /// What the player's view has on screen now.
  [[nodiscard]] std::optional<LayerPicture> layerPicture() const {
    std::optional<LayerPicture> found;
    const std::function<void(CALayer&)> look = [&](CALayer& layer) {
      if (auto picture = layer.picture(TimeSource::now())) found = std::move(picture);
      for (const auto& below : layer.sublayers()) look(*below);
    };
    look(*player->outputView()->layer());
    return found;
  }
  [[nodiscard]] std::optional<int> shown() const {
    const auto now = layerPicture();
    return now ? test::frameNumber(now->buffer) : std::nullopt;
  }

  ManualTime time;
  std::shared_ptr<PlayerManager> manager = PlayerManager::create();
  std::shared_ptr<AVPlayerItem> item;
  double loopSeconds = -1;
  double totalSeconds = -1;
  std::shared_ptr<PlayerDecorator> player;
};

}  // namespace zaffo
