// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAsset.h"

#include "platform/avfoundation/engine/LoadedURLAsset.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {

std::shared_ptr<AVAsset> AVAsset::assetWithURL(std::shared_ptr<const NSURL> url) {
  return AVURLAsset::URLAssetWithURL(std::move(url));
}

std::vector<std::shared_ptr<const AVAssetTrack>> AVAsset::tracksWithMediaType(
    AVMediaType type) const {
  std::vector<std::shared_ptr<const AVAssetTrack>> matching;
  for (auto& track : tracks()) {
    if (track->mediaType == type) matching.push_back(track);
  }
  return matching;
}

std::shared_ptr<media::SampleSource> AVAsset::sampleSource() const {
  return nullptr;
}

std::shared_ptr<AVURLAsset> AVURLAsset::URLAssetWithURL(std::shared_ptr<const NSURL> url) {
  return std::make_shared<LoadedURLAsset>(std::move(url));
}

}  // namespace zaffo
