#include "platform/media/DecodeQueue.h"

#include <utility>

namespace zaffo::media {

int DecodeQueue::send(const AVPacket& packet) {
  if (!isFresh_ && (!ready_.empty() || failure_ < 0)) return AVERROR(EAGAIN);
  isFresh_ = false;
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
  (void)avcodec_send_packet(context_.get(), nullptr);
  collect();
  drained_ = true;
}

void DecodeQueue::startAnew() {
  if (isFresh_) return;
  drain();
  avcodec_flush_buffers(context_.get());
  drained_ = false;
  isFresh_ = true;
}

void DecodeQueue::startAnewWith(CodecContextPtr context) {
  if (!isFresh_) drain();
  context_ = std::move(context);
  drained_ = false;
  isFresh_ = true;
}

void DecodeQueue::flush() {
  avcodec_flush_buffers(context_.get());
  ready_.clear();
  failure_ = 0;
  drained_ = false;
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
