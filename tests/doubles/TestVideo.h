// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "companion/ZFVideo.h"

namespace zaffo {

/// A video that is nothing but its values, and may act when asked for them; its loader operations
/// do nothing.
class TestVideo final : public ZFVideo {
 public:
  explicit TestVideo(std::string id, bool keepsItem = true)
      : id_(std::move(id)), keepsItem_(keepsItem) {}

  CMTime duration = CMTimeMake(5, 1);
  /// Run inside the question.
  std::function<void()> onIdAsked, onDurationAsked, onReuseAsked;

  [[nodiscard]] std::string videoId() const override {
    if (onIdAsked) onIdAsked();
    return id_;
  }
  [[nodiscard]] CMTime itemDuration() const override {
    if (onDurationAsked) onDurationAsked();
    return duration;
  }
  [[nodiscard]] bool canPause() const override { return true; }
  [[nodiscard]] bool canPlay() const override { return true; }
  [[nodiscard]] bool explicitContent() const override { return false; }
  [[nodiscard]] bool canReuseAVPlayerItem() const override {
    if (onReuseAsked) onReuseAsked();
    return keepsItem_;
  }

  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions,
                                                 ItemCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long, CGSize,
                                               ThumbnailCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long, PreloadCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }

 private:
  const std::string id_;
  const bool keepsItem_;
};

}  // namespace zaffo
