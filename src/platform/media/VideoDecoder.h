#pragma once

#include <memory>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/media/DecodeOutcome.h"
#include "platform/media/Sample.h"

namespace zaffo::media {

/// A decoded picture, on the time line of the samples it came from.
struct VideoFrame {
  CVPixelBufferPtr buffer;
  CMTime presentation;
  CMTime duration;
};

/// Decodes one video track in software with the least threads that keep up (one up to 1080p30).
/// Frames that were marked not shown, or have no time, are decoded and not given.
/// Thread: one at a time.
class VideoDecoder {
 public:
  /// Null with `error` set when there is no decoder or it refuses the parameters.
  [[nodiscard]] static std::unique_ptr<VideoDecoder> open(const AVCodecParameters& parameters,
                                                          NSErrorPtr* error);
  virtual ~VideoDecoder() = default;

  [[nodiscard]] virtual DecodeOutcome send(const Sample& sample) = 0;
  [[nodiscard]] virtual DecodeOutcome receive(VideoFrame& frame) = 0;
  /// No more samples come: receive() gives all that is left, then End. reset() before the next
  /// send.
  virtual void drain() = 0;
  /// Forgets everything decoded so far, for a start at a sync sample.
  virtual void reset() = 0;
  /// Whether frames that no other frame refers to may be skipped, for samples sent from now on.
  virtual void setSkipsUnreferencedFrames(bool skips) = 0;
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
};

}  // namespace zaffo::media
