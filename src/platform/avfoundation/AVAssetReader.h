// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
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

  /// The same without waiting: null and `isComing` set where the next sample is not here yet, which
  /// the ready handler will tell. An output that only has the above waits here, too.
  [[nodiscard]] virtual std::shared_ptr<CMSampleBuffer> copyNextSampleBufferIfReady(bool& isComing);
  /// Called, on any thread, when there may be a sample again, or none any more. Set before the
  /// first sample is asked for.
  virtual void setReadyHandler(std::function<void()> handler);
};

/// The samples of one track as they are stored, compressed. A buffer refers to the bytes that were
/// read from the file, with the same format description for all buffers until the format changes.
/// It tells what it is by its attachments: not sync, do not display (see AVAssetReader), reset the
/// decoder (the first sample of a composition's segment).
class ZAFFO_EXPORT AVAssetReaderTrackOutput : public AVAssetReaderOutput {
 public:
  /// An output serves the one reader that it is added to, and does not keep it.
  [[nodiscard]] static std::shared_ptr<AVAssetReaderTrackOutput> create(
      std::shared_ptr<const AVAssetTrack> track);
  [[nodiscard]] virtual const std::shared_ptr<const AVAssetTrack>& track() const = 0;
};

/// Reads the samples of a local asset once, from the sync sample that decoding the start of the
/// time range needs to its end, in decode order and with their times on the asset's time line,
/// after edits. Marked as not to be displayed is what the range does not show: what comes at its
/// end or later, what edits hide, and what another sample has replaced by its start. The last
/// sample at or before the start is what shows there; it is not marked. A range that starts at or
/// after the end of a track completes without samples of it; one that starts where a file that was
/// cut short has none any more fails. Nothing is decoded. Lets go of the file when it ends, fails,
/// is cancelled or is released. Abstract so that a test can script it.
/// Thread: one at a time; cancelReading(), status() and error() any.
///
///               startReading            no more samples
///     Unknown ───────────────> Reading ────────────────> Completed
///        │ cancelReading          │ │  read error
///        │                        │ └──────────────────> Failed
///        └──────> Cancelled <─────┘ cancelReading
class ZAFFO_EXPORT AVAssetReader {
 public:
  /// Null with `error` set when the asset is not readable, its tracks are not loaded and cannot be,
  /// or its header tells that it cannot be played: it is encrypted, or there is no decoder for it.
  /// Reads no header of an asset whose tracks are loaded.
  [[nodiscard]] static std::shared_ptr<AVAssetReader> create(std::shared_ptr<AVAsset> asset,
                                                             NSErrorPtr* error);
  virtual ~AVAssetReader() = default;

  [[nodiscard]] virtual AVAssetReaderStatus status() const = 0;
  /// Why the status is Failed; null otherwise.
  [[nodiscard]] virtual NSErrorPtr error() const = 0;

  /// Before startReading() only; ignored later. From zero to positive infinity at first. A start
  /// that is not numeric stands for the beginning, a duration that is not for the end.
  virtual void setTimeRange(CMTimeRange range) = 0;
  /// Whether `output` is one of this asset's tracks, was added to no reader yet, no other was added
  /// for its track, and reading has not started. Adding one that cannot be changes nothing.
  [[nodiscard]] virtual bool canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) = 0;
  virtual void addOutput(std::shared_ptr<AVAssetReaderOutput> output) = 0;
  /// False when it was started or cancelled before, or a track cannot be opened: see status().
  /// Reads nothing of a file. Without outputs it stays Reading.
  virtual bool startReading() = 0;
  /// Ends reading: every output gives null from now on, also one that is being read on another
  /// thread; a wait there ends. Nothing after Completed or Failed.
  virtual void cancelReading() = 0;
};

}  // namespace zaffo
