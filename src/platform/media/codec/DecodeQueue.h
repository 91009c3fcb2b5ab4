// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>

#include "platform/media/codec/CodecContext.h"

namespace zaffo::media {

/// A codec that decodes each packet the moment it is sent and keeps the frames until they are
/// received. FFmpeg alone may put a packet off: it would then be decoded under settings made for a
/// later one, and be lost when the end is announced before it was decoded.
/// Results are FFmpeg's: 0, AVERROR(EAGAIN), AVERROR_EOF or another error. Thread: one at a time.
class DecodeQueue {
 public:
  explicit DecodeQueue(CodecContextPtr context) : context_(std::move(context)) {}

  [[nodiscard]] AVCodecContext& context() { return *context_; }
  [[nodiscard]] AVCodecID codecID() const { return context_->codec_id; }

  /// EAGAIN while frames wait to be received, unless these are from before startAnew(). An error is
  /// the packet's: the next can be sent.
  [[nodiscard]] int send(const AVPacket& packet);
  /// Puts a frame into `frame`, taking over what it held for later use.
  [[nodiscard]] int receive(FramePtr& frame);
  /// No more packets come: what the codec holds back is received, then EOF.
  void drain();
  /// The next packet does not continue those before it: what the codec holds back is received
  /// first. Takes no longer than flush(); nothing when no packet was sent since.
  void startAnew();
  /// The same, with another codec from now on.
  void startAnewWith(CodecContextPtr context);
  /// Forgets everything; packets can be sent again.
  void flush();

 private:
  void collect();
  void drainAll();

  CodecContextPtr context_;
  std::deque<FramePtr> ready_;
  FramePtr spare_;
  int failure_ = 0;  // met after a packet was taken, to be told once
  bool drained_ = false;
  bool sawSync_ = false;  // since the codec was opened or flushed
  bool isFresh_ = true;   // no packet since the codec was opened or flushed
};

}  // namespace zaffo::media
