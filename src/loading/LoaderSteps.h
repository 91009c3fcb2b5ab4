#pragma once

#include <memory>
#include <string>

#include "companion/AVPlayerItemLoader.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"

namespace zaffo {

/// The steps that both item loaders take. Thread: any.

/// Completes a load on the media queue.
void deliverItem(AVPlayerItemLoader::ItemCompletion completion, std::shared_ptr<AVPlayerItem> item,
                 double loopSeconds, double seconds);
/// Completes a load that has failed, on the media queue.
void deliverNoItem(AVPlayerItemLoader::ItemCompletion completion);

/// Loads of an asset what building an item takes, then calls `handler` where the asset says.
void loadAsset(AVAsset& asset, std::function<void()> handler);
/// Whether an asset was loaded well enough to build an item of: no key is still loading, failed or
/// cancelled, and there is a picture.
[[nodiscard]] bool isUsable(const AVAsset& asset);
/// Loads of the asset of an item what a player asks of it, then completes the load with the item,
/// whatever came of it.
void deliverLoadedItem(std::shared_ptr<AVPlayerItem> item, double loopSeconds, double seconds,
                       AVPlayerItemLoader::ItemCompletion completion);

/// Makes the first frame at background priority and completes on the media queue.
void loadFirstFrame(std::shared_ptr<AVAssetImageGenerator> generator,
                    AVPlayerItemLoader::ThumbnailCompletion completion);

/// "<NameOfClass: 0x55d0c8e0, url: short form of the URL>".
[[nodiscard]] std::string describeLoader(const char* className, const void* loader,
                                         const NSURL* url);

}  // namespace zaffo
