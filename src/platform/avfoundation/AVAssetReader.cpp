#include "platform/avfoundation/AVAssetReader.h"

#include "platform/avfoundation/AssetKeys.h"
#include "platform/avfoundation/AssetReader.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/SampleSource.h"

namespace zaffo {

std::shared_ptr<AVAssetReaderTrackOutput> AVAssetReaderTrackOutput::create(
    std::shared_ptr<const AVAssetTrack> track) {
  return std::make_shared<AssetTrackOutput>(std::move(track));
}

std::shared_ptr<AVAssetReader> AVAssetReader::create(std::shared_ptr<AVAsset> asset,
                                                     std::shared_ptr<const NSError>* error) {
  std::shared_ptr<const NSError> failure =
      asset ? loadKeysAndWait(*asset, {"tracks"}) : media::makeError(AVErrorUnknown, "No asset.");
  auto source = failure ? nullptr : asset->sampleSource();
  if (!failure && (!asset->isReadable() || !source)) {
    failure = media::makeError(AVErrorUnknown, "The samples of the asset cannot be read.");
  }
  if (!failure) failure = source->whyNotPlayed();
  media::setError(error, failure);
  if (failure) return nullptr;
  return std::make_shared<AssetReader>(std::move(asset), std::move(source));
}

}  // namespace zaffo
