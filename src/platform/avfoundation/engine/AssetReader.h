// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/avfoundation/engine/AssetTrackOutput.h"

namespace zaffo {

/// Reads the tracks of an asset from its sample source.
class AssetReader final : public AVAssetReader {
 public:
  AssetReader(std::shared_ptr<AVAsset> asset, std::shared_ptr<media::SampleSource> source)
      : asset_(std::move(asset)), source_(std::move(source)) {}
  ~AssetReader() override { cancelReading(); }

  [[nodiscard]] AVAssetReaderStatus status() const override { return reading_->status(); }
  [[nodiscard]] NSErrorPtr error() const override { return reading_->error(); }
  void setTimeRange(CMTimeRange range) override;
  [[nodiscard]] bool canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) override;
  void addOutput(std::shared_ptr<AVAssetReaderOutput> output) override;
  bool startReading() override;
  void cancelReading() override;

 private:
  [[nodiscard]] bool hasTrack(const AVAssetTrack& track) const;
  [[nodiscard]] std::vector<std::shared_ptr<AssetTrackOutput>> outputs() const;

  const std::shared_ptr<AVAsset> asset_;
  const std::shared_ptr<media::SampleSource> source_;
  const std::shared_ptr<AssetReading> reading_ = std::make_shared<AssetReading>();
  CMTimeRange range_{kCMTimeZero, kCMTimePositiveInfinity};

  mutable Mutex outputsMutex_;
  std::vector<std::shared_ptr<AssetTrackOutput>> outputs_ ZAFFO_GUARDED_BY(outputsMutex_);
};

}  // namespace zaffo
