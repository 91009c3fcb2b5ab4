// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/foundation/Result.h"
#include "platform/media/Outcome.h"
#include "platform/media/Sample.h"

namespace zaffo::media {

/// A decoded picture, on the time line of the samples it came from.
struct VideoFrame {
  CVPixelBufferPtr buffer;
  CMTime presentation;
  CMTime duration;
};

/// Decodes one video track in software with the least threads that keep up (decoderThreads()).
/// Frames that were marked not shown, or have no time, are decoded as far as others refer to them,
/// and not given. Frames that are too early (holdBackBefore()) are held back, unconverted, the last
/// one alone. Thread: one at a time.
class VideoDecoder {
 public:
  /// Fails when there is no decoder or it refuses the parameters.
  static Result<std::unique_ptr<VideoDecoder>> open(const AVCodecParameters& parameters);
  virtual ~VideoDecoder() = default;

  /// Ready when the sample was taken, Again when receive() comes first; after an Error the decoder
  /// goes on with a later one. A sample that starts anew is taken whatever is still to be received:
  /// that is given first.
  [[nodiscard]] virtual Outcome send(const Sample& sample) = 0;
  /// To be told before a sample that starts anew is sent, and after reset(): the samples from now
  /// on have these parameters. Nothing happens when they are the ones it has; otherwise another
  /// codec is opened, and what the old one holds is given first. False with error() set when there
  /// is no decoder for them: samples are then refused until it is told others.
  [[nodiscard]] virtual bool adoptParameters(const AVCodecParameters& parameters) = 0;
  /// Again when send() comes first; End when it was drained and has given all.
  [[nodiscard]] virtual Outcome receive(VideoFrame& frame) = 0;
  /// No more samples come: receive() gives all that is left, then End. reset() before the next
  /// send.
  virtual void drain() = 0;
  /// Forgets everything decoded so far, for a start at a sync sample.
  virtual void reset() = 0;
  /// Frames before `time` are held back from now on; none with an invalid time, as at first.
  virtual void holdBackBefore(CMTime time) = 0;
  /// The presentation time of the frame held back last; invalid when there is none.
  [[nodiscard]] virtual CMTime heldBack() const = 0;
  /// Gives that frame, after all: Ready once, then Again.
  [[nodiscard]] virtual Outcome receiveHeldBack(VideoFrame& frame) = 0;
  virtual void forgetHeldBack() = 0;
  /// Whether frames that no other frame refers to may be skipped, for samples sent from now on.
  virtual void setSkipsUnreferencedFrames(bool skips) = 0;
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
};

}  // namespace zaffo::media
