// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVAudioMix.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/AVPlayerItem.h"

namespace zaffo {

/// How a loader creates the platform's objects: as the platform does, unless a test substitutes
/// others. Thread: any; the functions may be called on several threads at once.
struct AVFactory {
  using URL = std::shared_ptr<const NSURL>;

  /// The asset that a player item is made of.
  std::function<std::shared_ptr<AVAsset>(const URL&)> URLAssetWithURL = [](const URL& url) {
    return AVURLAsset::URLAssetWithURL(url);
  };
  /// The asset that a thumbnail is made of.
  std::function<std::shared_ptr<AVAsset>(const URL&)> assetWithURL = [](const URL& url) {
    return AVAsset::assetWithURL(url);
  };
  /// May throw NSErrorException.
  std::function<std::shared_ptr<AVPlayerItem>(std::shared_ptr<AVAsset>)> playerItemWithAsset =
      &AVPlayerItem::playerItemWithAsset;
  std::function<std::shared_ptr<AVAssetImageGenerator>(std::shared_ptr<AVAsset>)>
      assetImageGeneratorWithAsset = &AVAssetImageGenerator::assetImageGeneratorWithAsset;
  /// An empty composition.
  std::function<std::shared_ptr<AVMutableComposition>()> composition =
      &AVMutableComposition::create;
  /// An empty mix.
  std::function<std::shared_ptr<AVMutableAudioMix>()> audioMix = &AVMutableAudioMix::audioMix;
};

}  // namespace zaffo
