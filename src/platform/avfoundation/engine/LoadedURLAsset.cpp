// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/LoadedURLAsset.h"

#include <utility>

#include "platform/avfoundation/engine/AssetOpening.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {

LoadedURLAsset::LoadedURLAsset(std::shared_ptr<const NSURL> url)
    : url_(std::move(url)),
      loading_(std::make_shared<AssetLoading>(
          [address = url_](const DispatchQueuePtr& queue, AssetOpening::Completion done) {
            return AssetOpening::begin(address, queue, std::move(done));
          })) {}

void LoadedURLAsset::loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                                     std::function<void()> handler) {
  loading_->load(keys, std::move(handler));
}

AVKeyValueStatus LoadedURLAsset::statusOfValueForKey(const std::string& key,
                                                     NSErrorPtr* error) const {
  return loading_->status(key, error);
}

void LoadedURLAsset::cancelLoading() {
  loading_->cancel();
}

CMTime LoadedURLAsset::duration() const {
  const auto source = loading_->sourceForKey("duration");
  return source ? source->duration() : kCMTimeInvalid;
}

std::vector<std::shared_ptr<const AVAssetTrack>> LoadedURLAsset::tracks() const {
  const auto source = loading_->sourceForKey("tracks");
  if (!source) return {};
  return source->tracks();
}

bool LoadedURLAsset::isReadable() const {
  return url_ && url_->isFileURL() && !loading_->error();
}

bool LoadedURLAsset::isPlayable() const {
  const auto source = loading_->sourceForKey("playable");
  return source && source->isPlayable();
}

std::shared_ptr<media::SampleSource> LoadedURLAsset::sampleSource() const {
  return loading_->sourceForKey("tracks");
}

}  // namespace zaffo
