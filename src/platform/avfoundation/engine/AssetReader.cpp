// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetReader.h"

#include <algorithm>
#include <utility>

#include "platform/media/source/SampleSource.h"

namespace zaffo {

void AssetReader::setTimeRange(CMTimeRange range) {
  if (status() == AVAssetReaderStatus::Unknown) range_ = range;
}

bool AssetReader::hasTrack(const AVAssetTrack& track) const {
  return std::ranges::any_of(source_->tracks(), [&](const auto& own) {
    return own->trackID == track.trackID && (own.get() == &track || track.source.lock() == source_);
  });
}

std::vector<std::shared_ptr<AssetTrackOutput>> AssetReader::outputs() const {
  MutexLock lock(outputsMutex_);
  return outputs_;
}

bool AssetReader::canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) {
  if (status() != AVAssetReaderStatus::Unknown) return false;
  const auto added = std::dynamic_pointer_cast<AssetTrackOutput>(output);
  if (!added || added->isClaimed() || !added->track() || !hasTrack(*added->track())) return false;
  return std::ranges::none_of(outputs(), [&added](const auto& present) {
    return present->track()->trackID == added->track()->trackID;
  });
}

void AssetReader::addOutput(std::shared_ptr<AVAssetReaderOutput> output) {
  if (!canAddOutput(output)) return;
  auto added = std::static_pointer_cast<AssetTrackOutput>(std::move(output));
  if (!added->claim()) return;
  MutexLock lock(outputsMutex_);
  outputs_.push_back(std::move(added));
}

bool AssetReader::startReading() {
  const auto started = outputs();
  if (!reading_->begin(started.size())) return false;
  for (const auto& output : started) {
    auto samples = media::SampleRange::open(*source_, *output->track(), range_);
    if (!samples) {
      reading_->fail(samples.error());
      return false;
    }
    output->start(reading_, *std::move(samples));
  }
  return status() == AVAssetReaderStatus::Reading;
}

void AssetReader::cancelReading() {
  reading_->cancel();
  for (const auto& output : outputs()) output->stop();
}

}  // namespace zaffo
