// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "companion/AVPlayerItemLoader.h"
#include "loading/AVFactory.h"

namespace zaffo {

/// Turns the URL of a video into an item that plays the file once, as it is, and into a thumbnail.
/// It caches nothing: each call starts from the URL. Nothing can be cancelled: every operation
/// returns the command that does nothing, and a request runs to its end even if the caller releases
/// the loader. Completions run on ZFMediaQueue, never inside the call, and may be empty. Thread:
/// any, but setURL() must not be called while another thread uses the loader.
class ZAFFO_EXPORT ZFSingleLoopVideoPlayerItemLoader final : public AVPlayerItemLoader {
 public:
  [[nodiscard]] static std::shared_ptr<ZFSingleLoopVideoPlayerItemLoader> createWithURL(
      std::shared_ptr<const NSURL> url);

  /// A loader that has no URL yet.
  explicit ZFSingleLoopVideoPlayerItemLoader(AVFactory factory = {});

  /// The local file or remote address of the video.
  [[nodiscard]] const std::shared_ptr<const NSURL>& url() const { return url_; }
  void setURL(std::shared_ptr<const NSURL> url) { url_ = std::move(url); }

  /// Calls `completeBlock` once with the item and, twice, its length in seconds (one loop is the
  /// whole item), or with null and zeros when the video cannot be read, has no picture, or no item
  /// can be made of it. `options` have no effect.
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override;

  /// Calls `completion` once with the frame at time zero, at most `targetSize` pixels, not rotated
  /// by the track's transform; or with the platform's error; or with an error of domain
  /// "com.zaffoapp.media" and code 4567 when there is no picture. Runs at background priority,
  /// whatever `priority` says.
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                               ThumbnailCompletion completion) override;

  /// Does nothing; `completeBlock` is never called.
  ZFCancelCommandPtr preloadWithPriority(unsigned long priority,
                                         PreloadCompletion completeBlock) override;

  /// True: a loaded item may stay in an idle player.
  [[nodiscard]] bool canReuseAVPlayerItem() const override;

  /// "<ZFSingleLoopVideoPlayerItemLoader: 0x55d0c8e0, url: short form of the URL>".
  [[nodiscard]] std::string description() const;

 private:
  std::shared_ptr<const NSURL> url_;
  const AVFactory factory_;
};

}  // namespace zaffo
