// SPDX-License-Identifier: Apache-2.0
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"

#include <string>
#include <utility>

#include "loading/LoaderSteps.h"

namespace zaffo {

namespace {

using ItemCompletion = AVPlayerItemLoader::ItemCompletion;

/// Null when the platform refuses to create one.
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
  if (!isUsable(*asset)) return deliverNoItem(completion);
  const double seconds = CMTimeGetSeconds(asset->duration());
  const auto item = makeItem(factory, asset);
  if (!item) return deliverNoItem(completion);
  deliverLoadedItem(item, seconds, seconds, completion);
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
  loadAsset(*asset, [factory = factory_, asset, completion = std::move(completeBlock)] {
    makeItemOfLoadedAsset(factory, asset, completion);
  });
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr ZFSingleLoopVideoPlayerItemLoader::loadThumbnailWithPriority(
    unsigned long /*priority*/, CGSize targetSize, ThumbnailCompletion completion) {
  auto generator = factory_.assetImageGeneratorWithAsset(factory_.assetWithURL(url_));
  generator->setMaximumSize(targetSize);
  loadFirstFrame(std::move(generator), std::move(completion));
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
  return describeLoader("ZFSingleLoopVideoPlayerItemLoader", this, url_.get());
}

}  // namespace zaffo
