// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "companion/AVPlayerItemLoader.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"

namespace zaffo {

/// The steps that both item loaders share. Thread: any.

/// Completes a load on the media queue.
void deliverItem(AVPlayerItemLoader::ItemCompletion completion, std::shared_ptr<AVPlayerItem> item,
                 double loopSeconds, double seconds);
/// Completes a load that has failed, on the media queue.
void deliverNoItem(AVPlayerItemLoader::ItemCompletion completion);

/// Loads what building an item needs from an asset, then calls `handler` on whatever thread the
/// asset reports on.
void loadAsset(AVAsset& asset, std::function<void()> handler);
/// Whether enough of an asset was loaded to build an item from it: no key is still loading, failed
/// or cancelled, and there is a video track.
[[nodiscard]] bool isUsable(const AVAsset& asset);
/// Loads what a player will ask of the item's asset, then completes the load with the item,
/// whatever the outcome.
void deliverLoadedItem(std::shared_ptr<AVPlayerItem> item, double loopSeconds, double seconds,
                       AVPlayerItemLoader::ItemCompletion completion);

/// Makes an image of the first frame at background priority and completes on the media queue.
void loadFirstFrame(std::shared_ptr<AVAssetImageGenerator> generator,
                    AVPlayerItemLoader::ThumbnailCompletion completion);

/// "<NameOfClass: 0x55d0c8e0, url: short form of the URL>".
[[nodiscard]] std::string describeLoader(const char* className, const void* loader,
                                         const NSURL* url);

}  // namespace zaffo
