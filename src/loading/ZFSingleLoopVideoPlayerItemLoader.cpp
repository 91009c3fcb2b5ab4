#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "companion/ShortVideoURL.h"
#include "pool/ZFMediaQueue.h"

namespace zaffo {

namespace {

using ItemCompletion = AVPlayerItemLoader::ItemCompletion;
using ThumbnailCompletion = AVPlayerItemLoader::ThumbnailCompletion;

// Functions, for workers may still need them while the process's statics go away.
std::vector<std::string> assetKeys() {
  return {"tracks", "duration"};
}
std::vector<std::string> itemKeys() {
  return {"tracks", "duration", "playable"};
}

void deliver(ItemCompletion completion, std::shared_ptr<AVPlayerItem> item, double seconds) {
  dispatch_async(ZFMediaQueue::queue(),
                 [completion = std::move(completion), item = std::move(item), seconds]() mutable {
                   completion(std::move(item), seconds, seconds);
                 });
}

bool hasFailed(AVKeyValueStatus status) {
  return status == AVKeyValueStatus::Loading || status == AVKeyValueStatus::Failed ||
         status == AVKeyValueStatus::Cancelled;
}

bool allKeysPass(const AVAsset& asset) {
  return std::ranges::none_of(assetKeys(), [&](const std::string& key) {
    return hasFailed(asset.statusOfValueForKey(key));
  });
}

/// Null when the platform refuses to make one.
std::shared_ptr<AVPlayerItem> makeItem(const AVFactory& factory,
                                       const std::shared_ptr<AVAsset>& asset) {
  try {
    return factory.playerItemWithAsset(asset);
  } catch (const NSErrorException&) {
    return nullptr;
  }
}

void makeItemOfLoadedAsset(const AVFactory& factory, const std::shared_ptr<AVAsset>& asset,
                           const ItemCompletion& completion) {
  if (!allKeysPass(*asset) || asset->tracksWithMediaType(AVMediaTypeVideo).empty()) {
    deliver(completion, nullptr, 0);
    return;
  }
  const double seconds = CMTimeGetSeconds(asset->duration());
  const auto item = makeItem(factory, asset);
  if (!item) {
    deliver(completion, nullptr, 0);
    return;
  }
  item->asset()->loadValuesAsynchronouslyForKeys(
      itemKeys(), [completion, item, seconds] { deliver(completion, item, seconds); });
}

void deliverThumbnail(const ThumbnailCompletion& completion, CGImagePtr image,
                      std::shared_ptr<const NSError> error) {
  if (error) {
    completion(nullptr, std::move(error));
  } else if (image && CGImageGetHeight(image) != 0) {
    completion(UIImage::imageWithCGImage(std::move(image)), nullptr);
  } else {
    completion(nullptr, NSError::create("com.zaffoapp.media", 4567));
  }
}

void copyFirstFrame(AVAssetImageGenerator& generator, ThumbnailCompletion completion) {
  std::shared_ptr<const NSError> error;
  auto image = generator.copyCGImageAtTime(kCMTimeZero, nullptr, &error);
  dispatch_async(ZFMediaQueue::queue(),
                 [completion = std::move(completion), image = std::move(image),
                  error = std::move(error)] { deliverThumbnail(completion, image, error); });
}

}  // namespace

std::shared_ptr<ZFSingleLoopVideoPlayerItemLoader> ZFSingleLoopVideoPlayerItemLoader::createWithURL(
    std::shared_ptr<const NSURL> url) {
  const auto loader = std::make_shared<ZFSingleLoopVideoPlayerItemLoader>();
  loader->setURL(std::move(url));
  return loader;
}

ZFSingleLoopVideoPlayerItemLoader::ZFSingleLoopVideoPlayerItemLoader(AVFactory factory)
    : factory_(std::move(factory)) {}

ZFCancelCommandPtr ZFSingleLoopVideoPlayerItemLoader::loadAVPlayerItemWithOptions(
    AVPlayerItemLoaderOptions /*options*/, ItemCompletion completeBlock) {
  if (!completeBlock) completeBlock = [](const auto&, double, double) {};
  const auto asset = factory_.URLAssetWithURL(url_);
  asset->loadValuesAsynchronouslyForKeys(
      assetKeys(), [factory = factory_, asset, completion = std::move(completeBlock)] {
        makeItemOfLoadedAsset(factory, asset, completion);
      });
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr ZFSingleLoopVideoPlayerItemLoader::loadThumbnailWithPriority(
    unsigned long /*priority*/, CGSize targetSize, ThumbnailCompletion completion) {
  const auto generator = factory_.assetImageGeneratorWithAsset(factory_.assetWithURL(url_));
  generator->setMaximumSize(targetSize);
  if (!completion) completion = [](const auto&, const auto&) {};
  dispatch_async(
      dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND),
      [generator, completion = std::move(completion)] { copyFirstFrame(*generator, completion); });
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr ZFSingleLoopVideoPlayerItemLoader::preloadWithPriority(
    unsigned long /*priority*/, PreloadCompletion /*completeBlock*/) {
  return ZFNoopCancelCommand::sharedInstance();
}

bool ZFSingleLoopVideoPlayerItemLoader::canReuseAVPlayerItem() const {
  return true;
}

std::string ZFSingleLoopVideoPlayerItemLoader::description() const {
  char address[2 + 2 * sizeof(void*) + 1];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  return std::string("<ZFSingleLoopVideoPlayerItemLoader: ") + address +
         ", url: " + (url_ ? shortVideoUrl(*url_) : "(null)") + ">";
}

}  // namespace zaffo
