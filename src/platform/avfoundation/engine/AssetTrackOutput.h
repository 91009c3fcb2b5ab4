// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <memory>
#include <utility>

#include "platform/Mutex.h"
#include "platform/avfoundation/engine/AssetReading.h"
#include "platform/media/source/SampleRange.h"

namespace zaffo {

/// Gives the samples of a track. Thread: one at a time; stop() any.
class AssetTrackOutput final : public AVAssetReaderTrackOutput,
                               public std::enable_shared_from_this<AssetTrackOutput> {
 public:
  explicit AssetTrackOutput(std::shared_ptr<const AVAssetTrack> track) : track_(std::move(track)) {}

  void setAlwaysCopiesSampleData(bool copies) override { copies_ = copies; }
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBuffer() override;
  [[nodiscard]] const std::shared_ptr<const AVAssetTrack>& track() const override { return track_; }

  /// True the first time: an output serves one reader.
  [[nodiscard]] bool claim() { return !std::exchange(claimed_, true); }
  [[nodiscard]] bool isClaimed() const { return claimed_; }
  void start(std::shared_ptr<AssetReading> reading, std::unique_ptr<media::SampleRange> samples);
  /// Lets go of the track, now or as soon as a read under way has ended; wakes one that waits.
  void stop();

 private:
  [[nodiscard]] std::unique_ptr<media::SampleRange> takeSamples();
  [[nodiscard]] bool giveBack(std::unique_ptr<media::SampleRange> samples);
  [[nodiscard]] media::Outcome read(media::SampleRange& samples, media::Sample& sample);
  void wake();

  const std::shared_ptr<const AVAssetTrack> track_;
  bool copies_ = true;
  bool claimed_ = false;

  Mutex samplesMutex_;
  std::condition_variable_any ready_;
  bool isReady_ ZAFFO_GUARDED_BY(samplesMutex_) = false;
  bool running_ ZAFFO_GUARDED_BY(samplesMutex_) = false;
  std::shared_ptr<AssetReading> reading_ ZAFFO_GUARDED_BY(samplesMutex_);
  std::unique_ptr<media::SampleRange> samples_ ZAFFO_GUARDED_BY(samplesMutex_);  // null in a read
};

}  // namespace zaffo
