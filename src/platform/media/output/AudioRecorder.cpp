// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/AudioRecorder.h"

#include <utility>

#include "platform/dispatch/Confinement.h"

namespace zaffo::media {

AudioRecorder::AudioRecorder(std::unique_ptr<WavWriter> writer, std::shared_ptr<SampleTap> tap)
    : queue_(dispatch_queue_create_blocking("com.zaffo.audio.recorder")),
      tap_(std::move(tap)),
      writer_(std::move(writer)) {}

void AudioRecorder::start() {
  timer_ = dispatch_timer_every(kInterval, queue_, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->drain();
  });
}

void AudioRecorder::finish(std::function<void()> finished) {
  timer_->cancel();
  queue_->async([self = shared_from_this(), finished = std::move(finished)] {
    self->drain();
    self->writer_.reset();
    finished();
  });
}

void AudioRecorder::drain() {
  assertCurrent(*queue_);
  if (!writer_) return;
  for (;;) {
    batch_.clear();
    const int64_t first = tap_->take(batch_);
    if (batch_.empty()) break;
    if (!firstFrame_) firstFrame_ = first;
    const int64_t gap = first - *firstFrame_ - writer_->frames();
    if (gap > 0) writer_->appendSilence(gap);
    writer_->append(batch_);
  }
  writer_->flush();
}

}  // namespace zaffo::media
