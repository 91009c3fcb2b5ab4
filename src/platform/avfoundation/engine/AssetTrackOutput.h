// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/Mutex.h"
#include "platform/avfoundation/engine/AssetReading.h"
#include "platform/dispatch/OutsideSignal.h"
#include "platform/media/source/SampleRange.h"

namespace zaffo {

/// Gives the samples of a track. Thread: one at a time; stop() any.
class AssetTrackOutput final : public AVAssetReaderTrackOutput,
                               public std::enable_shared_from_this<AssetTrackOutput> {
 public:
  explicit AssetTrackOutput(std::shared_ptr<const AVAssetTrack> track) : track_(std::move(track)) {}

  void setAlwaysCopiesSampleData(bool copies) override { copies_ = copies; }
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBuffer() override;
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBufferIfReady(
      bool& isComing) override;
  void setReadyHandler(std::function<void()> handler) override { ready_ = std::move(handler); }
  [[nodiscard]] const std::shared_ptr<const AVAssetTrack>& track() const override { return track_; }

  /// True the first time: an output serves one reader.
  [[nodiscard]] bool claim() { return !std::exchange(claimed_, true); }
  [[nodiscard]] bool isClaimed() const { return claimed_; }
  void start(std::shared_ptr<AssetReading> reading, std::unique_ptr<media::SampleRange> samples);
  /// Lets go of the track, now or as soon as a read under way has ended; wakes one that waits.
  void stop();

 private:
  [[nodiscard]] std::unique_ptr<media::SampleRange> takeSamples();
  [[nodiscard]] bool giveBack(std::unique_ptr<media::SampleRange> samples, bool isAwaited);
  [[nodiscard]] std::shared_ptr<AssetReading> reading();
  void wake();

  const std::shared_ptr<const AVAssetTrack> track_;
  bool copies_ = true;
  bool claimed_ = false;
  std::function<void()> ready_;
  OutsideSignal change_;  ///< samples have come, or it was stopped

  Mutex samplesMutex_;
  bool isAwaited_ ZAFFO_GUARDED_BY(samplesMutex_) = false;  ///< more of them, or their end
  bool running_ ZAFFO_GUARDED_BY(samplesMutex_) = false;
  std::shared_ptr<AssetReading> reading_ ZAFFO_GUARDED_BY(samplesMutex_);
  std::unique_ptr<media::SampleRange> samples_ ZAFFO_GUARDED_BY(samplesMutex_);  // null in a read
};

}  // namespace zaffo
