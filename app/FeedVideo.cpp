#include "FeedVideo.h"

namespace zaffo::feed {

FeedVideo::FeedVideo(std::shared_ptr<const NSURL> url, std::string id,
                     std::shared_ptr<AVPlayerItemLoader> loader)
    : url_(std::move(url)), id_(std::move(id)), loader_(std::move(loader)) {}

std::string FeedVideo::name() const {
  const std::string last = url_->lastPathComponent();
  return last.empty() ? url_->absoluteString() : last;
}

ZFCancelCommandPtr FeedVideo::loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                          ItemCompletion completeBlock) {
  return loader_->loadAVPlayerItemWithOptions(options, std::move(completeBlock));
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
