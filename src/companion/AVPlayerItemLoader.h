// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "companion/ZFCancelCommand.h"
#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/uikit/UIImage.h"

namespace zaffo {

/// A set of options for building an item, stored in an unsigned word. Two sets are equal when their
/// words are.
class AVPlayerItemLoaderOptions {
 public:
  using RawValue = std::uintptr_t;

  constexpr AVPlayerItemLoaderOptions() = default;
  constexpr explicit AVPlayerItemLoaderOptions(RawValue rawValue) : rawValue_(rawValue) {}

  /// The looping loader fades in its first loop.
  static const AVPlayerItemLoaderOptions fadeIn;

  [[nodiscard]] constexpr RawValue rawValue() const { return rawValue_; }
  [[nodiscard]] constexpr bool contains(AVPlayerItemLoaderOptions other) const {
    return (rawValue_ & other.rawValue_) == other.rawValue_;
  }
  [[nodiscard]] constexpr AVPlayerItemLoaderOptions operator|(
      AVPlayerItemLoaderOptions other) const {
    return AVPlayerItemLoaderOptions(rawValue_ | other.rawValue_);
  }
  constexpr bool operator==(const AVPlayerItemLoaderOptions&) const = default;

 private:
  RawValue rawValue_ = 0;
};

inline constexpr AVPlayerItemLoaderOptions AVPlayerItemLoaderOptions::fadeIn{2};

/// Turns a video into a player item and a thumbnail. Completions may be empty. Thread: any.
class ZAFFO_EXPORT AVPlayerItemLoader {
 public:
  /// The item (null when loading failed), the length of one loop and the total, in seconds. For the
  /// looping loader the length of a loop is the clip's less 0.1 s, even where the sound outlasts
  /// the picture and a loop is shorter than that.
  using ItemCompletion =
      std::function<void(std::shared_ptr<AVPlayerItem> item, double loopSeconds, double seconds)>;
  using ThumbnailCompletion = std::function<void(std::shared_ptr<const UIImage> image, NSErrorPtr)>;
  using PreloadCompletion = std::function<void(NSErrorPtr)>;

  virtual ~AVPlayerItemLoader() = default;

  virtual ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                         ItemCompletion completeBlock) = 0;
  virtual ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                                       ThumbnailCompletion completion) = 0;
  virtual ZFCancelCommandPtr preloadWithPriority(unsigned long priority,
                                                 PreloadCompletion completeBlock) = 0;
  /// Whether a loaded item may stay in an idle player.
  [[nodiscard]] virtual bool canReuseAVPlayerItem() const = 0;
};

}  // namespace zaffo
