// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "fast/PlaybackSession.h"
#include "fast/QuietTrace.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/foundation/NSNotificationCenter.h"

namespace zaffo {

/// Real clips through the platform's own reader and display layer, in time that is moved by hand.
class RealMediaTest : public testing::Test {
 protected:
  void TearDown() override {
    session.reset();
    time.settle();
  }

  std::shared_ptr<AVPlayerItem> itemAt(const std::string& path) {
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(path));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    time.settle();
    return AVPlayerItem::playerItemWithAsset(asset);
  }

  /// Starts a session on a clip at `path`; null is success.
  NSErrorPtr start(const std::string& path) {
    item = itemAt(path);
    listen();
    session = PlaybackSession::create(item);
    NSErrorPtr error;
    session->start([&error](NSErrorPtr told) { error = std::move(told); });
    if (const auto& layer = session->displayLayer()) layer->setBounds(CGRectMake(0, 0, 384, 216));
    time.settle();
    return error;
  }

  void seek(CMTime target) {
    session->seek(target, nullptr);
    time.settle();
  }

  [[nodiscard]] std::optional<LayerPicture> picture() const {
    return session->displayLayer()->picture(TimeSource::now());
  }
  /// The number of the frame on show now.
  [[nodiscard]] std::optional<int> shown() const {
    const auto drawn = picture();
    return drawn ? test::frameNumber(drawn->buffer) : std::nullopt;
  }
  [[nodiscard]] int64_t elapsed() const { return time.elapsed(); }

  /// Hears of the ends of `item` from now on.
  void listen() {
    for (const auto* const name : {AVPlayerItemDidPlayToEndTimeNotification,
                                   AVPlayerItemFailedToPlayToEndTimeNotification}) {
      NSNotificationCenter::defaultCenter().addObserver(
          token_, name, item, [this](const NSNotification& notification) {
            ends.push_back({notification.name, time.elapsed()});
          });
    }
  }

 public:
  ManualTime time;
  std::shared_ptr<AVPlayerItem> item;
  std::shared_ptr<PlaybackSession> session;
  struct End {
    std::string name;
    int64_t at = 0;  ///< of time.elapsed()
  };
  std::vector<End> ends;

 private:
  const QuietTrace quiet_;
  const std::shared_ptr<int> token_ = std::make_shared<int>(0);
};

}  // namespace zaffo
