#include "clip/ClipVideo.h"

#include <utility>

#include "loading/ZFLoopingVideoPlayerItemLoader.h"
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"
#include "platform/dispatch/DispatchQueue.h"

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
    // A loader that can make no loop says so by letting go of the block uncalled. Where it was
    // called the load is over by the time that is noticed.
    const std::shared_ptr<void> silence(nullptr, [self = shared_from_this()](void*) {
      dispatch_async(dispatch_get_main_queue(), [self] { self->startAgainPlainly(); });
    });
    video_->loader_->loadAVPlayerItemWithOptions(
        options_, [self = shared_from_this(), silence](const std::shared_ptr<AVPlayerItem>& item,
                                                       double loopSeconds, double seconds) {
          dispatch_async(dispatch_get_main_queue(), [=] { self->end(item, loopSeconds, seconds); });
        });
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

  void end(const std::shared_ptr<AVPlayerItem>& item, double loopSeconds, double seconds) {
    if (std::exchange(isOver_, true)) return;
    if (item) video_->itemDuration_ = item->duration();
    const ItemCompletion completion = std::exchange(completion_, nullptr);
    if (completion) completion(item, loopSeconds, seconds);
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
