// SPDX-License-Identifier: Apache-2.0
#include "loading/LoaderSteps.h"

#include <algorithm>
#include <cstdio>
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

bool hasFailed(AVKeyValueStatus status) {
  return status == AVKeyValueStatus::Loading || status == AVKeyValueStatus::Failed ||
         status == AVKeyValueStatus::Cancelled;
}

void deliverThumbnail(const ThumbnailCompletion& completion, CGImagePtr image, NSErrorPtr error) {
  if (error) {
    completion(nullptr, std::move(error));
  } else if (image && CGImageGetHeight(image) != 0) {
    completion(UIImage::imageWithCGImage(std::move(image)), nullptr);
  } else {
    completion(nullptr, NSError::create("com.zaffoapp.media", 4567));
  }
}

void makeFirstFrame(AVAssetImageGenerator& generator, ThumbnailCompletion completion) {
  generator.generateCGImageAsynchronouslyForTime(
      kCMTimeZero, [completion = std::move(completion)](CGImagePtr image, CMTime /*actualTime*/,
                                                        NSErrorPtr error) {
        dispatch_async(ZFMediaQueue::queue(),
                       [completion, image = std::move(image), error = std::move(error)] {
                         deliverThumbnail(completion, image, error);
                       });
      });
}

}  // namespace

void deliverItem(ItemCompletion completion, std::shared_ptr<AVPlayerItem> item, double loopSeconds,
                 double seconds) {
  dispatch_async(ZFMediaQueue::queue(),
                 [completion = std::move(completion), item = std::move(item), loopSeconds,
                  seconds]() mutable { completion(std::move(item), loopSeconds, seconds); });
}

void deliverNoItem(ItemCompletion completion) {
  deliverItem(std::move(completion), nullptr, 0, 0);
}

void loadAsset(AVAsset& asset, std::function<void()> handler) {
  asset.loadValuesAsynchronouslyForKeys(assetKeys(), std::move(handler));
}

bool isUsable(const AVAsset& asset) {
  const bool allKeysPass = std::ranges::none_of(assetKeys(), [&](const std::string& key) {
    return hasFailed(asset.statusOfValueForKey(key));
  });
  return allKeysPass && !asset.tracksWithMediaType(AVMediaTypeVideo).empty();
}

void deliverLoadedItem(std::shared_ptr<AVPlayerItem> item, double loopSeconds, double seconds,
                       ItemCompletion completion) {
  const auto asset = item->asset();
  asset->loadValuesAsynchronouslyForKeys(itemKeys(), [item = std::move(item), loopSeconds, seconds,
                                                      completion = std::move(completion)] {
    deliverItem(completion, item, loopSeconds, seconds);
  });
}

void loadFirstFrame(std::shared_ptr<AVAssetImageGenerator> generator,
                    ThumbnailCompletion completion) {
  if (!completion) completion = [](const auto&, const auto&) {};
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND),
                 [generator = std::move(generator), completion = std::move(completion)] {
                   makeFirstFrame(*generator, completion);
                 });
}

std::string describeLoader(const char* className, const void* loader, const NSURL* url) {
  char address[2 + 2 * sizeof(void*) + 1];
  std::snprintf(address, sizeof address, "%p", loader);
  return std::string("<") + className + ": " + address +
         ", url: " + (url ? shortVideoUrl(*url) : "(null)") + ">";
}

}  // namespace zaffo
