// SPDX-License-Identifier: Apache-2.0
#include "clip/ClipVideo.h"

#include <optional>
#include <utility>

#include "clip/ItemAnswer.h"
#include "loading/ZFLoopingVideoPlayerItemLoader.h"
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"

namespace zaffo {

/// One load of an item, whose completion is called at most once, and not at all after cancel().
/// Thread: main.
class ClipVideo::ItemLoad final : public ZFCancelCommand,
                                  public std::enable_shared_from_this<ItemLoad> {
 public:
  ItemLoad(std::shared_ptr<ClipVideo> video, AVPlayerItemLoaderOptions options,
           ItemCompletion completion)
      : video_(std::move(video)), options_(options), completion_(std::move(completion)) {}

  void start() {
    video_->loader_->loadAVPlayerItemWithOptions(
        options_,
        answeringOnMainQueue([self = shared_from_this()](const std::optional<ItemAnswer>& answer) {
          return answer ? self->end(*answer) : self->startAgainPlainly();
        }));
  }

  void cancel() override {
    isOver_ = true;
    completion_ = nullptr;
  }

 private:
  void startAgainPlainly() {
    if (isOver_) return;
    video_->loader_ = video_->plainLoader_;
    start();
  }

  void end(const ItemAnswer& answer) {
    if (std::exchange(isOver_, true)) return;
    if (answer.item) video_->itemDuration_ = answer.item->duration();
    const ItemCompletion completion = std::exchange(completion_, nullptr);
    if (completion) completion(answer.item, answer.loopSeconds, answer.seconds);
  }

  const std::shared_ptr<ClipVideo> video_;
  const AVPlayerItemLoaderOptions options_;
  ItemCompletion completion_;
  bool isOver_ = false;
};

std::shared_ptr<ClipVideo> ClipVideo::create(std::shared_ptr<const NSURL> url, Loop loop) {
  return std::make_shared<ClipVideo>(Private{}, std::move(url), loop);
}

ClipVideo::ClipVideo(Private, std::shared_ptr<const NSURL> url, Loop loop)
    : url_(std::move(url)),
      plainLoader_(ZFSingleLoopVideoPlayerItemLoader::createWithURL(url_)),
      loader_(plainLoader_),
      loop_(loop) {
  if (loop == Loop::Endless) loader_ = ZFLoopingVideoPlayerItemLoader::createWithURL(url_);
}

std::string ClipVideo::videoId() const {
  return (loop_ == Loop::Endless ? "loop " : "once ") + url_->absoluteString();
}

ZFCancelCommandPtr ClipVideo::loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                          ItemCompletion completeBlock) {
  const auto load =
      std::make_shared<ItemLoad>(shared_from_this(), options, std::move(completeBlock));
  load->start();
  return load;
}

ZFCancelCommandPtr ClipVideo::loadThumbnailWithPriority(unsigned long priority, CGSize targetSize,
                                                        ThumbnailCompletion completion) {
  return plainLoader_->loadThumbnailWithPriority(priority, targetSize, std::move(completion));
}

ZFCancelCommandPtr ClipVideo::preloadWithPriority(unsigned long priority,
                                                  PreloadCompletion completeBlock) {
  return plainLoader_->preloadWithPriority(priority, std::move(completeBlock));
}

}  // namespace zaffo
