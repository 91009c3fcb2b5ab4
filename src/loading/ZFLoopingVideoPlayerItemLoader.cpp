// SPDX-License-Identifier: Apache-2.0
#include "loading/ZFLoopingVideoPlayerItemLoader.h"

#include <string>
#include <utility>

#include "loading/LoaderSteps.h"
#include "loading/ZFZaffoLoopingComposition.h"

namespace zaffo {

namespace {

using ItemCompletion = AVPlayerItemLoader::ItemCompletion;

/// What one load works on.
struct Load {
  AVFactory factory;
  AVPlayerItemLoaderOptions options;
  ItemCompletion completion;
  std::shared_ptr<AVMutableComposition> composition;
  std::shared_ptr<AVAsset> asset;
};

struct LoopingItem {
  std::shared_ptr<AVPlayerItem> item;  // null when no loop can be made of the asset
  double loopSeconds = 0;
  double seconds = 0;
};

/// Throws NSErrorException when the platform does.
LoopingItem makeLoopingItem(const Load& load) {
  const auto mix = load.factory.audioMix();
  ZFZaffoLoopingComposition builder;
  builder.setShouldFadeIn(load.options.contains(AVPlayerItemLoaderOptions::fadeIn));
  if (!builder.createAudioCrossFadeLoopingComposition(*load.composition, *mix, *load.asset))
    return {};
  auto item = load.factory.playerItemWithAsset(load.composition);
  item->setAudioMix(mix);
  return {std::move(item), CMTimeGetSeconds(builder.videoLength()),
          CMTimeGetSeconds(load.composition->duration())};
}

void makeItemOfLoadedAsset(const Load& load) {
  if (!isUsable(*load.asset)) return deliverNoItem(load.completion);
  LoopingItem looping;
  try {
    looping = makeLoopingItem(load);
  } catch (const NSErrorException&) {
    return deliverNoItem(load.completion);
  }
  if (!looping.item) return;  // in silence, as the header says
  deliverLoadedItem(looping.item, looping.loopSeconds, looping.seconds, load.completion);
}

void start(const std::shared_ptr<Load>& load, const std::shared_ptr<const NSURL>& url) {
  load->composition = load->factory.composition();
  load->asset = load->factory.URLAssetWithURL(url);
  loadAsset(*load->asset, [load] { makeItemOfLoadedAsset(*load); });
}

}  // namespace

std::shared_ptr<ZFLoopingVideoPlayerItemLoader> ZFLoopingVideoPlayerItemLoader::createWithURL(
    std::shared_ptr<const NSURL> url) {
  const auto loader = std::make_shared<ZFLoopingVideoPlayerItemLoader>();
  loader->setURL(std::move(url));
  return loader;
}

ZFLoopingVideoPlayerItemLoader::ZFLoopingVideoPlayerItemLoader(AVFactory factory)
    : factory_(std::move(factory)) {}

ZFCancelCommandPtr ZFLoopingVideoPlayerItemLoader::loadAVPlayerItemWithOptions(
    AVPlayerItemLoaderOptions options, ItemCompletion completeBlock) {
  if (!completeBlock) completeBlock = [](const auto&, double, double) {};
  const auto load =
      std::make_shared<Load>(Load{factory_, options, std::move(completeBlock), nullptr, nullptr});
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH),
                 [load, url = url_] { start(load, url); });
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr ZFLoopingVideoPlayerItemLoader::loadThumbnailWithPriority(
    unsigned long /*priority*/, CGSize targetSize, ThumbnailCompletion completion) {
  auto generator = factory_.assetImageGeneratorWithAsset(factory_.assetWithURL(url_));
  generator->setAppliesPreferredTrackTransform(true);
  generator->setMaximumSize(targetSize);
  loadFirstFrame(std::move(generator), std::move(completion));
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr ZFLoopingVideoPlayerItemLoader::preloadWithPriority(
    unsigned long /*priority*/, PreloadCompletion /*completeBlock*/) {
  return ZFNoopCancelCommand::sharedInstance();
}

bool ZFLoopingVideoPlayerItemLoader::canReuseAVPlayerItem() const {
  return true;
}

std::string ZFLoopingVideoPlayerItemLoader::description() const {
  return describeLoader("ZFLoopingVideoPlayerItemLoader", this, url_.get());
}

}  // namespace zaffo
