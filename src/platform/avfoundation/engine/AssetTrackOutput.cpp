// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetTrackOutput.h"

#include <utility>

#include "platform/dispatch/OutsideWait.h"
#include "platform/media/SampleBuffers.h"

namespace zaffo {

void AssetTrackOutput::start(std::shared_ptr<AssetReading> reading,
                             std::unique_ptr<media::SampleRange> samples) {
  samples->setReadyHandler([weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->wake();
  });
  MutexLock lock(samplesMutex_);
  // A cancel that came before finds the reader cancelled, and stop() is called no more.
  if (reading->status() != AVAssetReaderStatus::Reading) return;
  reading_ = std::move(reading);
  samples_.swap(samples);
  running_ = true;
}

void AssetTrackOutput::stop() {
  std::unique_ptr<media::SampleRange> released;
  {
    MutexLock lock(samplesMutex_);
    running_ = false;
    released = std::move(samples_);
  }
  ready_.notify_all();
}

void AssetTrackOutput::wake() {
  {
    MutexLock lock(samplesMutex_);
    isReady_ = true;
  }
  ready_.notify_all();
}

std::unique_ptr<media::SampleRange> AssetTrackOutput::takeSamples() {
  MutexLock lock(samplesMutex_);
  const bool open = running_ && reading_->status() == AVAssetReaderStatus::Reading;
  return open ? std::move(samples_) : nullptr;
}

/// False when the output was stopped meanwhile.
bool AssetTrackOutput::giveBack(std::unique_ptr<media::SampleRange> samples) {
  MutexLock lock(samplesMutex_);
  if (running_) samples_.swap(samples);
  return running_;
}

/// Waits while nothing is there yet; Again when it was stopped meanwhile.
media::Outcome AssetTrackOutput::read(media::SampleRange& samples, media::Sample& sample) {
  for (;;) {
    {
      MutexLock lock(samplesMutex_);
      isReady_ = false;
    }
    const media::Outcome outcome = samples.next(sample);
    if (outcome != media::Outcome::Again) return outcome;
    const OutsideWait wait;
    MutexLock lock(samplesMutex_);
    while (running_ && !isReady_) ready_.wait(samplesMutex_);
    if (!running_) return outcome;
  }
}

std::shared_ptr<CMSampleBuffer> AssetTrackOutput::copyNextSampleBuffer() {
  auto samples = takeSamples();
  if (!samples) return nullptr;
  std::shared_ptr<AssetReading> reading;
  {
    MutexLock lock(samplesMutex_);
    reading = reading_;
  }
  media::Sample sample;
  switch (read(*samples, sample)) {
    case media::Outcome::Ready: {
      if (copies_ && !media::takeOwnBytes(sample)) break;
      auto buffer = media::makeSampleBuffer(std::move(sample), samples->format());
      return giveBack(std::move(samples)) ? buffer : nullptr;
    }
    case media::Outcome::End:
      samples.reset();
      reading->endOutput();
      break;
    case media::Outcome::Error:
      reading->fail(samples->error());
      break;
    case media::Outcome::Working:
    case media::Outcome::Again:
      break;
  }
  return nullptr;
}

}  // namespace zaffo
