// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAssetReader.h"

#include "platform/avfoundation/engine/AssetKeys.h"
#include "platform/avfoundation/engine/AssetReader.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {

std::shared_ptr<CMSampleBuffer> AVAssetReaderOutput::copyNextSampleBufferIfReady(bool& isComing) {
  isComing = false;
  return copyNextSampleBuffer();
}

void AVAssetReaderOutput::setReadyHandler(std::function<void()> /*handler*/) {}

std::shared_ptr<AVAssetReaderTrackOutput> AVAssetReaderTrackOutput::create(
    std::shared_ptr<const AVAssetTrack> track) {
  return std::make_shared<AssetTrackOutput>(std::move(track));
}

std::shared_ptr<AVAssetReader> AVAssetReader::create(std::shared_ptr<AVAsset> asset,
                                                     NSErrorPtr* error) {
  NSErrorPtr failure =
      asset ? loadKeysAndWait(*asset, {"tracks"}) : makeError(AVErrorUnknown, "No asset.");
  auto source = failure ? nullptr : asset->sampleSource();
  if (!failure && (!asset->isReadable() || !source)) {
    failure = makeError(AVErrorUnknown, "The samples of the asset cannot be read.");
  }
  if (!failure) failure = source->whyNotPlayed();
  setError(error, failure);
  if (failure) return nullptr;
  return std::make_shared<AssetReader>(std::move(asset), std::move(source));
}

}  // namespace zaffo
