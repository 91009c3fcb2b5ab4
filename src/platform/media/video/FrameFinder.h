// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/media/codec/VideoDecoder.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// Finds and decodes single frames of a video track, exactly: the frame shown at a time is the one
/// with the largest presentation time that is not after it, and the first one before that. It looks
/// through the samples first, so that frames which nothing shown needs are not decoded and none is
/// waited for after the one that is wanted. May wait for the source: not for the main thread.
/// Thread: one at a time.
class FrameFinder {
 public:
  /// Fails when there is no decoder for the track.
  static Result<std::unique_ptr<FrameFinder>> open(std::unique_ptr<SampleCursor> cursor);
  ~FrameFinder();

  /// Decodes the frame shown at `time`; fails when none can be decoded. A damaged frame is replaced
  /// by the last one before it that is not, or by one after it that was decoded on the way when
  /// there is none.
  Result<VideoFrame> frameAt(CMTime time);

 private:
  class Arrival;
  FrameFinder(std::unique_ptr<SampleCursor> cursor, std::unique_ptr<VideoDecoder> decoder);

  [[nodiscard]] Outcome next(Sample& sample);
  [[nodiscard]] std::optional<CMTime> presentationAt(CMTime time);
  [[nodiscard]] std::optional<VideoFrame> decodeTo(CMTime target);
  [[nodiscard]] bool take(CMTime target, std::optional<VideoFrame>& best);
  [[nodiscard]] NSErrorPtr failure() const;

  std::shared_ptr<Arrival> arrival_;
  std::unique_ptr<SampleCursor> cursor_;
  std::unique_ptr<VideoDecoder> decoder_;
};

}  // namespace zaffo::media
