// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/SampleDecoding.h"
#include "platform/media/FFmpegError.h"

namespace zaffo::media {

Outcome SampleDecoding::send(const Sample& sample) {
  clearError();
  if (sample.isDiscontinuity) queue_.startAnew();
  if (const int result = av_packet_ref(packet_.get(), sample.packet.get()); result < 0) {
    return fail(result);
  }
  packet_->pts = packet_->dts = times_.remember(sample);
  // Samples that are not shown are told by number: a decoder that drops them could not know that
  // a composition shows what the file hides.
  packet_->flags &= ~AV_PKT_FLAG_DISCARD;
  const int result = queue_.send(*packet_);
  av_packet_unref(packet_.get());
  if (result == AVERROR(EAGAIN)) times_.forgetLast();
  return result >= 0 ? Outcome::Ready : fail(result);
}

void SampleDecoding::reset() {
  queue_.flush();
  clearError();
}

Outcome SampleDecoding::fail(int averror) {
  if (averror == AVERROR(EAGAIN)) return Outcome::Again;
  if (averror == AVERROR_EOF) return Outcome::End;
  error_ = makeFFmpegError(AVErrorDecodeFailed, failure_, averror);
  return Outcome::Error;
}

}  // namespace zaffo::media
