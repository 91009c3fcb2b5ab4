#include "platform/media/codec/DecodeQueue.h"

#include <utility>

namespace zaffo::media {

int DecodeQueue::send(const AVPacket& packet) {
  if (!isFresh_ && (!ready_.empty() || failure_ < 0)) return AVERROR(EAGAIN);
  isFresh_ = false;
  sawSync_ = sawSync_ || (packet.flags & AV_PKT_FLAG_KEY);
  const int result = avcodec_send_packet(context_.get(), &packet);
  if (result >= 0) collect();
  return result;
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

void DecodeQueue::collect() {
  for (;;) {
    FramePtr frame = spare_ ? std::move(spare_) : FramePtr(av_frame_alloc());
    av_frame_unref(frame.get());
    const int result = avcodec_receive_frame(context_.get(), frame.get());
    if (result < 0) {
      spare_ = std::move(frame);
      if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) failure_ = result;
      return;
    }
    ready_.push_back(std::move(frame));
  }
}

}  // namespace zaffo::media
