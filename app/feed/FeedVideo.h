// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// The video at a URL, as one page of the feed shows it. Its item may stay in an idle player.
/// Thread: main.
class FeedVideo final : public ZFVideo {
 public:
  /// `id` tells pages apart: the same clip on two pages has two ids, and so two players. Items and
  /// thumbnails come from `loader`; if it can make no item, that comes from `plainLoader`, if there
  /// is one.
  FeedVideo(std::shared_ptr<const NSURL> url, std::string id,
            std::shared_ptr<AVPlayerItemLoader> loader,
            std::shared_ptr<AVPlayerItemLoader> plainLoader = nullptr);

  [[nodiscard]] const std::shared_ptr<const NSURL>& url() const { return url_; }
  /// Its name for people: the title that a list gave it, or that of the file.
  [[nodiscard]] std::string name() const;

  void setTitle(std::string title) { title_ = std::move(title); }

  /// Known once the item has been loaded; indefinite before.
  void setItemDuration(CMTime duration) { itemDuration_ = duration; }

  /// What the loader of the last item told of its loops: the seconds of one and of all of them.
  void setRounds(double round, double whole);
  /// How long the clip plays before it begins again, in an item of it laid end to end; empty when
  /// the item is the clip as it is, or none was loaded.
  [[nodiscard]] std::optional<double> roundSeconds() const { return roundSeconds_; }

  /// Takes items from the plain loader from now on; false when it already does, or there is none.
  [[nodiscard]] bool playPlainly();

  [[nodiscard]] std::string videoId() const override { return id_; }
  [[nodiscard]] CMTime itemDuration() const override { return itemDuration_; }
  [[nodiscard]] bool canPause() const override { return true; }
  [[nodiscard]] bool canPlay() const override { return true; }
  [[nodiscard]] bool explicitContent() const override { return false; }

  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override;
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                               ThumbnailCompletion completion) override;
  ZFCancelCommandPtr preloadWithPriority(unsigned long priority,
                                         PreloadCompletion completeBlock) override;
  [[nodiscard]] bool canReuseAVPlayerItem() const override;

 private:
  std::shared_ptr<const NSURL> url_;
  std::string id_;
  std::string title_;
  std::shared_ptr<AVPlayerItemLoader> loader_;
  std::shared_ptr<AVPlayerItemLoader> plainLoader_;
  bool playsPlainly_ = false;
  CMTime itemDuration_ = kCMTimeIndefinite;
  std::optional<double> roundSeconds_;
};

}  // namespace zaffo::feed
