// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include "platform/foundation/MakeError.h"
#include "platform/media/Outcome.h"
#include "platform/media/codec/DecodeQueue.h"
#include "platform/media/codec/SampleTimes.h"

namespace zaffo::media {

/// What decoding a track is whatever it carries: samples go into a codec, and what comes out finds
/// its sample again. Thread: one at a time.
class SampleDecoding {
 public:
  /// `failure` is the text for a person of an error that decoding ends in.
  SampleDecoding(CodecContextPtr context, std::string failure)
      : queue_(std::move(context)), failure_(std::move(failure)), packet_(av_packet_alloc()) {}

  [[nodiscard]] AVCodecContext& context() { return queue_.context(); }
  [[nodiscard]] AVCodecID codecID() const { return queue_.codecID(); }

  /// Never Again for a sample that starts anew: what comes before it is received first.
  [[nodiscard]] Outcome send(const Sample& sample);
  /// Puts a frame into `frame`, taking over what it held for later use. 0 or an AVERROR.
  [[nodiscard]] int receive(FramePtr& frame) { return queue_.receive(frame); }
  /// The sample that a received frame came out of; null for a further frame of the same sample.
  [[nodiscard]] const SampleTimes::Entry* sampleOf(const AVFrame& frame) const {
    return times_.find(frame.pts);
  }
  void drain() { queue_.drain(); }
  /// Another codec for what is sent from now on. What the old one holds is received first.
  void startAnewWith(CodecContextPtr context) { queue_.startAnewWith(std::move(context)); }
  /// The number that the next sample will have; those of samples rise.
  [[nodiscard]] int64_t nextNumber() const { return times_.next(); }
  void reset();

  /// What an AVERROR means to who decodes; it is kept as error() when it means Error.
  [[nodiscard]] Outcome fail(int averror);
  void clearError() { error_ = nullptr; }
  [[nodiscard]] NSErrorPtr error() const { return error_; }

 private:
  DecodeQueue queue_;
  const std::string failure_;
  SampleTimes times_;
  PacketPtr packet_;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
