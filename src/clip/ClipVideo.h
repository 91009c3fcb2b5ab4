// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "companion/ZFVideo.h"
#include "platform/foundation/NSURL.h"

// Xlib has a macro of this name, which is none of an enumerator's.
#pragma push_macro("None")
#undef None

namespace zaffo {

/// A video that is nothing but the clip at an address, for applications that need no ZFVideo of
/// their own. Its item stays in an idle player. Two of the same address and kind of loop have one
/// id, and so share a player. Thread: main.
class ZAFFO_EXPORT ClipVideo final : public ZFVideo,
                                     public std::enable_shared_from_this<ClipVideo> {
  struct Private {};

 public:
  enum class Loop {
    None,     ///< played once
    Endless,  ///< without a gap or a click; a clip of which no loop can be made is played once
  };

  [[nodiscard]] static std::shared_ptr<ClipVideo> create(std::shared_ptr<const NSURL> url,
                                                         Loop loop = Loop::Endless);
  ClipVideo(Private, std::shared_ptr<const NSURL> url, Loop loop);

  [[nodiscard]] const std::shared_ptr<const NSURL>& url() const { return url_; }

  [[nodiscard]] std::string videoId() const override;
  /// Indefinite until an item has been loaded.
  [[nodiscard]] CMTime itemDuration() const override { return itemDuration_; }
  [[nodiscard]] bool canPause() const override { return true; }
  [[nodiscard]] bool canPlay() const override { return true; }
  [[nodiscard]] bool explicitContent() const override { return false; }

  /// Unlike the looping loader's, its completion is always called, on the main queue, unless the
  /// command is cancelled first.
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override;
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                               ThumbnailCompletion completion) override;
  ZFCancelCommandPtr preloadWithPriority(unsigned long priority,
                                         PreloadCompletion completeBlock) override;
  [[nodiscard]] bool canReuseAVPlayerItem() const override { return true; }

 private:
  class ItemLoad;

  const std::shared_ptr<const NSURL> url_;
  const std::shared_ptr<AVPlayerItemLoader> plainLoader_;
  std::shared_ptr<AVPlayerItemLoader> loader_;  ///< the plain one where no loop can be made
  const Loop loop_;
  CMTime itemDuration_ = kCMTimeIndefinite;
};

}  // namespace zaffo

#pragma pop_macro("None")
