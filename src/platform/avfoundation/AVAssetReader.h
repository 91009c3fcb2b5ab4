#pragma once

#include <memory>

#include "platform/avfoundation/AVAsset.h"
#include "platform/coremedia/CMSampleBuffer.h"
#include "platform/coremedia/CMTimeRange.h"

namespace zaffo {

enum class AVAssetReaderStatus {
  Unknown = 0,
  Reading = 1,
  Completed = 2,
  Failed = 3,
  Cancelled = 4
};

/// Where a reader puts the samples of what it reads. Abstract so that a test can script it.
/// Thread: one at a time.
class ZAFFO_EXPORT AVAssetReaderOutput {
 public:
  virtual ~AVAssetReaderOutput() = default;

  /// Whether samples are copied for the caller, who may then change their bytes. On at first.
  virtual void setAlwaysCopiesSampleData(bool copies) = 0;
  /// The next sample in decode order, owned by the caller; null when there is none any more: the
  /// reader's status tells why. May wait for the disk.
  [[nodiscard]] virtual std::shared_ptr<CMSampleBuffer> copyNextSampleBuffer() = 0;
};

/// The samples of one track as they are stored, compressed.
class ZAFFO_EXPORT AVAssetReaderTrackOutput : public AVAssetReaderOutput {
 public:
  [[nodiscard]] static std::shared_ptr<AVAssetReaderTrackOutput> create(
      std::shared_ptr<const AVAssetTrack> track);
  [[nodiscard]] virtual const std::shared_ptr<const AVAssetTrack>& track() const = 0;
};

/// Reads the samples of a local asset once, from the sync sample that decoding the start of the
/// time range needs to its end, in decode order. What precedes the range is marked as not to be
/// displayed. Abstract so that a test can script it. Thread: one at a time; cancelReading() and
/// status() any.
///
///               startReading            no more samples
///     Unknown ───────────────> Reading ────────────────> Completed
///        │ cancelReading          │ │  read error
///        │                        │ └──────────────────> Failed
///        └──────> Cancelled <─────┘ cancelReading
class ZAFFO_EXPORT AVAssetReader {
 public:
  /// Null with `error` set when the asset is not readable, or its tracks are not loaded and cannot
  /// be. Reads no header of an asset whose tracks are loaded.
  [[nodiscard]] static std::shared_ptr<AVAssetReader> create(std::shared_ptr<AVAsset> asset,
                                                             std::shared_ptr<const NSError>* error);
  virtual ~AVAssetReader() = default;

  [[nodiscard]] virtual AVAssetReaderStatus status() const = 0;
  /// Why the status is Failed; null otherwise.
  [[nodiscard]] virtual std::shared_ptr<const NSError> error() const = 0;

  /// Before startReading() only. From zero to positive infinity at first.
  virtual void setTimeRange(CMTimeRange range) = 0;
  /// Whether `output` is one of this asset's tracks and no output was added for it yet.
  [[nodiscard]] virtual bool canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) = 0;
  virtual void addOutput(std::shared_ptr<AVAssetReaderOutput> output) = 0;
  /// False when it was started or cancelled before, or the start cannot be read: see status().
  virtual bool startReading() = 0;
  virtual void cancelReading() = 0;
};

}  // namespace zaffo
