// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetTrackOutput.h"

#include <utility>

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
  wake();
}

void AssetTrackOutput::wake() {
  change_.announce();
  {
    MutexLock lock(samplesMutex_);
    if (!std::exchange(isAwaited_, false)) return;
  }
  if (ready_) ready_();
}

std::unique_ptr<media::SampleRange> AssetTrackOutput::takeSamples() {
  MutexLock lock(samplesMutex_);
  const bool open = running_ && reading_->status() == AVAssetReaderStatus::Reading;
  if (!open) return nullptr;
  isAwaited_ = true;  // they may come while it is looked for them
  return std::move(samples_);
}

/// False when the output was stopped meanwhile.
bool AssetTrackOutput::giveBack(std::unique_ptr<media::SampleRange> samples, bool isAwaited) {
  MutexLock lock(samplesMutex_);
  if (!isAwaited) isAwaited_ = false;
  if (running_) samples_.swap(samples);
  return running_;
}

std::shared_ptr<AssetReading> AssetTrackOutput::reading() {
  MutexLock lock(samplesMutex_);
  return reading_;
}

std::shared_ptr<CMSampleBuffer> AssetTrackOutput::copyNextSampleBuffer() {
  for (;;) {
    bool isComing = false;
    if (auto buffer = copyNextSampleBufferIfReady(isComing)) return buffer;
    if (!isComing) return nullptr;
    change_.wait();
  }
}

std::shared_ptr<CMSampleBuffer> AssetTrackOutput::copyNextSampleBufferIfReady(bool& isComing) {
  isComing = false;
  auto samples = takeSamples();
  if (!samples) return nullptr;
  media::Sample sample;
  switch (samples->next(sample)) {
    case media::Outcome::Ready: {
      if (copies_ && !media::takeOwnBytes(sample)) break;
      auto buffer = media::makeSampleBuffer(std::move(sample), samples->format());
      return giveBack(std::move(samples), false) ? buffer : nullptr;
    }
    case media::Outcome::End:
      samples.reset();
      reading()->endOutput();
      break;
    case media::Outcome::Error:
      reading()->fail(samples->error());
      break;
    case media::Outcome::Working:
    case media::Outcome::Again:
      isComing = giveBack(std::move(samples), true);
      break;
  }
  return nullptr;
}

}  // namespace zaffo
