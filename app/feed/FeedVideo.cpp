// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedVideo.h"

#include <algorithm>
#include <cmath>

namespace zaffo::feed {

FeedVideo::FeedVideo(std::shared_ptr<const NSURL> url, std::string id,
                     std::shared_ptr<AVPlayerItemLoader> loader,
                     std::shared_ptr<AVPlayerItemLoader> plainLoader)
    : url_(std::move(url)),
      id_(std::move(id)),
      loader_(std::move(loader)),
      plainLoader_(std::move(plainLoader)) {}

std::string FeedVideo::name() const {
  if (!title_.empty()) return title_;
  const std::string last = url_->lastPathComponent();
  return last.empty() ? url_->absoluteString() : last;
}

/// A loop is shorter than the loader tells where the sound outlasts the picture: as long as all of
/// them together, by their number.
void FeedVideo::setRounds(double round, double whole) {
  roundSeconds_.reset();
  if (!plainLoader_ || playsPlainly_ || !(round > 0) || !(whole > 0)) return;
  constexpr double kTrimmed = 0.1, kWanted = 162.5, kFewest = 25, kMost = 50;
  const double copies = 1 + std::clamp(std::floor(kWanted / (round + kTrimmed)), kFewest, kMost);
  roundSeconds_ = whole / copies;
}

bool FeedVideo::playPlainly() {
  const bool changes = plainLoader_ && !playsPlainly_;
  playsPlainly_ = playsPlainly_ || changes;
  return changes;
}

ZFCancelCommandPtr FeedVideo::loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                          ItemCompletion completeBlock) {
  const auto& loader = playsPlainly_ ? plainLoader_ : loader_;
  return loader->loadAVPlayerItemWithOptions(options, std::move(completeBlock));
}

ZFCancelCommandPtr FeedVideo::loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                                        ThumbnailCompletion completion) {
  return loader_->loadThumbnailWithPriority(priority, targetSize, std::move(completion));
}

ZFCancelCommandPtr FeedVideo::preloadWithPriority(unsigned long priority,
                                                  PreloadCompletion completeBlock) {
  return loader_->preloadWithPriority(priority, std::move(completeBlock));
}

bool FeedVideo::canReuseAVPlayerItem() const {
  return loader_->canReuseAVPlayerItem();
}

}  // namespace zaffo::feed
