// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/avfoundation/AVPlayerLayer.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/media/playback/VideoOutput.h"

namespace zaffo {

/// A player of the test clips, with time moved by hand.
class PlayerFixture : public testing::Test {
 protected:
  [[nodiscard]] std::shared_ptr<AVAsset> loadedAsset(const std::string& path) {
    auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(path));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
    time_.settle();
    return asset;
  }

  [[nodiscard]] std::shared_ptr<AVPlayerItem> loadedItem(const std::string& name) {
    return AVPlayerItem::playerItemWithAsset(loadedAsset(test::clip(name)));
  }

  /// Puts a clip into the player and waits until its first frame is there.
  std::shared_ptr<AVPlayerItem> open(const std::string& name) {
    auto item = loadedItem(name);
    player_->replaceCurrentItemWithPlayerItem(item);
    time_.settle();
    return item;
  }

  /// The number of the frame that is on show now.
  [[nodiscard]] std::optional<int> shown() {
    return test::frameNumber(player_->videoOutput()->pictureAtHostTime(TimeSource::now()).buffer);
  }

  /// Whether the seek finished; nothing when its completion was not called.
  std::optional<bool> seekExactly(CMTime time) {
    std::optional<bool> result;
    player_->seekToTime(time, kCMTimeZero, kCMTimeZero, [&](bool finished) { result = finished; });
    time_.settle();
    return result;
  }

  [[nodiscard]] double seconds() { return CMTimeGetSeconds(player_->currentTime()); }

  /// Counts notifications of a name about any item.
  [[nodiscard]] std::shared_ptr<int> count(const char* name) {
    auto counter = std::make_shared<int>(0);
    NSNotificationCenter::defaultCenter().addObserver(
        counter, name, nullptr, [raw = counter.get()](const NSNotification&) { ++*raw; });
    return counter;
  }

  ManualTime time_;
  std::shared_ptr<AVPlayer> player_ = AVPlayer::create();
};

}  // namespace zaffo
