// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/media/ReorderHorizon.h"
#include "platform/media/codec/VideoDecoder.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// Finds and decodes single frames of a video track, exactly: the frame shown at a time is the one
/// with the largest presentation time that is not after it, and the first one before that. It looks
/// through the samples first, so that frames which nothing shown needs are not decoded, none is
/// waited for after the one that is wanted, and there is no decoder before their bytes are here.
/// Works in steps that never wait: a sample read, or a frame decoded. Thread: one at a time.
class FrameFinder {
 public:
  explicit FrameFinder(std::unique_ptr<SampleCursor> cursor) : cursor_(std::move(cursor)) {}

  /// Called, on any thread, when step() may give more than Again. Set before the first step.
  void setReadyHandler(std::function<void()> handler) {
    cursor_->setReadyHandler(std::move(handler));
  }

  /// Starts the search for the frame shown at `time`.
  void begin(CMTime time);
  /// Ready when it is found and decoded; Error when none can be. A damaged frame is replaced by the
  /// last one before it that is not, or by one after it that was decoded on the way when there is
  /// none.
  [[nodiscard]] Outcome step(VideoFrame& frame);
  /// Why the last step failed.
  [[nodiscard]] NSErrorPtr error() const;

 private:
  enum class Stage { Looking, Decoding, Draining, Over };

  [[nodiscard]] Outcome lookAhead();
  [[nodiscard]] bool isSettled() const;
  void pass(const Sample& sample);
  [[nodiscard]] Outcome startDecoding();
  [[nodiscard]] bool prepareDecoder();
  [[nodiscard]] Outcome decode(VideoFrame& frame);
  [[nodiscard]] Outcome drain(VideoFrame& frame);
  [[nodiscard]] Outcome receive();
  [[nodiscard]] Outcome finish(VideoFrame& frame);

  const std::unique_ptr<SampleCursor> cursor_;
  std::unique_ptr<VideoDecoder> decoder_;
  NSErrorPtr openError_;

  Stage stage_ = Stage::Over;
  CMTime time_ = kCMTimeInvalid;
  std::optional<CMTime> last_, first_;  ///< presentation: up to the time, and of all
  ReorderHorizon horizon_;              ///< of what was looked through
  CMTime target_ = kCMTimeInvalid;      ///< presentation of what is to be decoded
  std::optional<VideoFrame> best_;      ///< so far
};

}  // namespace zaffo::media
