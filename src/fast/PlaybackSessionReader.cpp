// SPDX-License-Identifier: Apache-2.0
#include "fast/PlaybackSessionReader.h"

#include <utility>

#include "platform/FatalError.h"

namespace zaffo {

using ReadError = AVAssetReaderExtension::ReadError;

namespace {

void markAsFirst(CMSampleBuffer& sample) {
  sample.setResetsDecoderBeforeDecoding(true);
  auto* const attachments = sample.sampleAttachmentsArray(true);
  if (!attachments) fatalError("A sample with a format has no sample attachments");
  if (!attachments->empty()) attachments->front().displayImmediately = true;
}

}  // namespace

PlaybackSessionReader::PlaybackSessionReader(const std::shared_ptr<AVAsset>& asset, CMTime time,
                                             const PlaybackSessionFactory& factory) {
  NSErrorPtr error;
  assetReader_ = factory.assetReaderWithAsset(asset, &error);
  if (!assetReader_) throw NSErrorException(std::move(error));
  checkStatus();
  assetReader_->setTimeRange(CMTimeRangeMake(time, kCMTimePositiveInfinity));
  addVideoOutput(*asset, factory);
  // The status shows whether it could start.
  (void)assetReader_->startReading();
  checkStatus();
}

void PlaybackSessionReader::addVideoOutput(const AVAsset& asset,
                                           const PlaybackSessionFactory& factory) {
  const auto tracks = asset.tracksWithMediaType(AVMediaTypeVideo);
  if (tracks.empty()) return;
  auto output = factory.assetReaderTrackOutputWithTrack(tracks.front());
  output->setAlwaysCopiesSampleData(false);
  if (!assetReader_->canAddOutput(output)) return;
  assetReader_->addOutput(output);
  videoOutput_ = std::move(output);
}

void PlaybackSessionReader::checkStatus() const {
  switch (assetReader_->status()) {
    case AVAssetReaderStatus::Unknown:
    case AVAssetReaderStatus::Reading:
      return;
    case AVAssetReaderStatus::Completed:
      throw ReadError::reachedEnd();
    case AVAssetReaderStatus::Failed:
      throw ReadError::failed(assetReader_->error());
    case AVAssetReaderStatus::Cancelled:
      throw ReadError::canceled();
  }
}

std::shared_ptr<CMSampleBuffer> PlaybackSessionReader::nextVideoBuffer() {
  return nextVideoBuffer(Patience::Waits);
}

std::shared_ptr<CMSampleBuffer> PlaybackSessionReader::nextVideoBufferIfReady() {
  return nextVideoBuffer(Patience::DoesNotWait);
}

std::shared_ptr<CMSampleBuffer> PlaybackSessionReader::nextVideoBuffer(Patience patience) {
  while (true) {
    if (!videoOutput_) throw ReadError::canceled();
    checkStatus();
    bool isComing = false;
    auto sample = patience == Patience::Waits ? videoOutput_->copyNextSampleBuffer()
                                              : videoOutput_->copyNextSampleBufferIfReady(isComing);
    if (isComing) return nullptr;
    if (!sample) {
      checkStatus();
      throw ReadError::canceled();
    }
    if (!sample->formatDescription()) continue;
    if (std::exchange(waitingForFirstBuffer_, false)) markAsFirst(*sample);
    return sample;
  }
}

void PlaybackSessionReader::setReadyHandler(std::function<void()> handler) {
  if (videoOutput_) videoOutput_->setReadyHandler(std::move(handler));
}

void PlaybackSessionReader::teardown() {
  assetReader_->cancelReading();
}

}  // namespace zaffo
