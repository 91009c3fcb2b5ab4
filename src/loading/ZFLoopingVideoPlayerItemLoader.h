// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "companion/AVPlayerItemLoader.h"
#include "loading/AVFactory.h"

namespace zaffo {

/// Turns the URL of a video into an item that plays the clip 26 to 51 times over without a gap or a
/// click (ZFZaffoLoopingComposition says how), and into a thumbnail. It caches nothing: each call
/// starts from the URL. Nothing can be cancelled: every operation returns the command that does
/// nothing, and a request runs to its end even if the caller releases the loader. Completions run
/// on ZFMediaQueue, never inside the call, and may be empty. Thread: any, but setURL() must not be
/// called while another thread uses the loader.
class ZAFFO_EXPORT ZFLoopingVideoPlayerItemLoader final : public AVPlayerItemLoader {
 public:
  [[nodiscard]] static std::shared_ptr<ZFLoopingVideoPlayerItemLoader> createWithURL(
      std::shared_ptr<const NSURL> url);

  /// A loader that has no URL yet.
  explicit ZFLoopingVideoPlayerItemLoader(AVFactory factory = {});

  /// The local file or remote address of the video.
  [[nodiscard]] const std::shared_ptr<const NSURL>& url() const { return url_; }
  void setURL(std::shared_ptr<const NSURL> url) { url_ = std::move(url); }

  /// Calls `completeBlock` once with the item, the length of one loop (the clip's less 0.1 s; where
  /// the sound outlasts the picture a loop is shorter, see ZFZaffoLoopingComposition::videoLength)
  /// and that of all of them, in seconds; or with null and zeros when the video cannot be read, has
  /// no picture, or the platform refuses to make an item. It is never called when no loop can be
  /// made of the video, for instance one of 0.1 s or less: the block is then released without a
  /// call, which a caller that has to know can detect by the destruction of something the block
  /// holds. Of `options`, fadeIn makes the sound of the first loop rise from silence.
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override;

  /// Calls `completion` once with the frame at time zero of the file, at most `targetSize` pixels,
  /// upright; or with the platform's error; or with an error of domain "com.zaffoapp.media" and
  /// code 4567 when there is no picture. Runs at background priority, whatever `priority` says.
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                               ThumbnailCompletion completion) override;

  /// Does nothing; `completeBlock` is never called.
  ZFCancelCommandPtr preloadWithPriority(unsigned long priority,
                                         PreloadCompletion completeBlock) override;

  /// True: a loaded item may stay in an idle player.
  [[nodiscard]] bool canReuseAVPlayerItem() const override;

  /// "<ZFLoopingVideoPlayerItemLoader: 0x55d0c8e0, url: short form of the URL>".
  [[nodiscard]] std::string description() const;

 private:
  std::shared_ptr<const NSURL> url_;
  const AVFactory factory_;
};

}  // namespace zaffo
