// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/DecodeQueue.h"

#include <utility>

namespace zaffo::media {

namespace {

/// A damaged packet may hold more than one frame (VP9 packs up to eight), each with its own error.
constexpr int kMostErrors = 64;

}  // namespace

int DecodeQueue::send(const AVPacket& packet) {
  if (!isFresh_ && (!ready_.empty() || failure_ < 0)) return AVERROR(EAGAIN);
  isFresh_ = false;
  sawSync_ = sawSync_ || (packet.flags & AV_PKT_FLAG_KEY);
  const int result = avcodec_send_packet(context_.get(), &packet);
  collect();
  if (result >= 0) return result;
  failure_ = 0;  // told here
  // A codec that neither gives nor takes would be asked for ever.
  return result == AVERROR(EAGAIN) ? AVERROR_INVALIDDATA : result;
}

int DecodeQueue::receive(FramePtr& frame) {
  if (!ready_.empty()) {
    if (frame) spare_ = std::move(frame);
    frame = std::move(ready_.front());
    ready_.pop_front();
    return 0;
  }
  if (failure_ < 0) return std::exchange(failure_, 0);
  return drained_ ? AVERROR_EOF : AVERROR(EAGAIN);
}

void DecodeQueue::drain() {
  drainAll();
  drained_ = true;
}

// FFmpeg's H.264 decoder takes what follows a sync sample without a reset of its own (of an open
// GOP) for damaged until that sample is out, and when it is drained gives none of it away.
void DecodeQueue::drainAll() {
  if (sawSync_) context_->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
  (void)avcodec_send_packet(context_.get(), nullptr);
  collect();
  context_->flags &= ~AV_CODEC_FLAG_OUTPUT_CORRUPT;
}

void DecodeQueue::startAnew() {
  if (isFresh_) return;
  drainAll();
  avcodec_flush_buffers(context_.get());
  drained_ = sawSync_ = false;
  isFresh_ = true;
}

void DecodeQueue::startAnewWith(CodecContextPtr context) {
  if (!isFresh_) drainAll();
  context_ = std::move(context);
  drained_ = sawSync_ = false;
  isFresh_ = true;
}

void DecodeQueue::flush() {
  avcodec_flush_buffers(context_.get());
  ready_.clear();
  failure_ = 0;
  drained_ = sawSync_ = false;
  isFresh_ = true;
}

/// Takes out all that was decoded. What follows an error in the same packet stays in FFmpeg until
/// it is asked for, and no other packet is taken before.
void DecodeQueue::collect() {
  for (int errors = 0; errors < kMostErrors;) {
    FramePtr frame = spare_ ? std::move(spare_) : FramePtr(av_frame_alloc());
    av_frame_unref(frame.get());
    const int result = avcodec_receive_frame(context_.get(), frame.get());
    if (result < 0) {
      spare_ = std::move(frame);
      if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
      failure_ = result;
      ++errors;
      continue;
    }
    ready_.push_back(std::move(frame));
  }
}

}  // namespace zaffo::media
