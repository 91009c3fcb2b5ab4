// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/AudioTrack.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

#include "platform/media/FrameTime.h"

namespace zaffo::media {

namespace {

/// Sound beyond the end of the media this far behind a gap is taken for a damaged time.
constexpr int64_t kLongestGapSeconds = 60;

CMTime soundStart(const Sample& sample) {
  const bool bounded =
      CMTIME_IS_NUMERIC(sample.presentation) && CMTIME_IS_NUMERIC(sample.heardFrom);
  return bounded ? CMTimeMaximum(sample.presentation, sample.heardFrom) : sample.presentation;
}

}  // namespace

AudioTrack::AudioTrack(std::shared_ptr<SampleSource> source, int trackID, int sampleRate,
                       VolumeEnvelope volume, OpenDecoder open)
    : source_(std::move(source)),
      trackID_(trackID),
      sampleRate_(sampleRate),
      volume_(std::move(volume)),
      openDecoder_(std::move(open)) {}

AudioTrack::~AudioTrack() = default;

void AudioTrack::seek(int64_t frame) {
  nextFrame_ = frame;
  decodedEnd_ = -1;
  ended_ = failed_;
  sample_.reset();
  block_.samples.clear();
  cursorIsPlaced_ = false;
  resetDecoder();
}

void AudioTrack::release() {
  sample_.reset();
  block_ = {};
  decoder_.reset();
  cursor_.reset();
  decoderIsEmpty_ = true;
  ended_ = true;
}

Outcome AudioTrack::read(int64_t frame, AudioBlock& block) {
  block.samples.clear();
  if (!ended_ && !cursorIsPlaced_) {
    if (!hasSoundBefore(frame)) return ended_ ? Outcome::End : Outcome::Ready;
    if (!seekCursor()) fail();
  }
  while (!ended_) {
    if (!block_.samples.empty()) return give(frame, block);
    if (receive()) continue;
    if (const Outcome outcome = feed(frame); outcome != Outcome::Working) return outcome;
  }
  return Outcome::End;
}

/// Takes a block that the decoder has ready, or what else it has to tell; false when it needs to be
/// fed.
bool AudioTrack::receive() {
  while (!decoderIsEmpty_) {
    switch (decoder_->receive(block_)) {
      case Outcome::Ready:
        if (isWanted()) return true;
        if (!isOutOfReach(block_.firstFrame)) break;
        block_.samples.clear();
        end();
        return true;
      case Outcome::Error:
        break;  // a damaged sample is a gap in the sound; the next one goes on in its place
      case Outcome::Working:
      case Outcome::Again:
        return false;
      case Outcome::End:
        resetDecoder();
        if (sample_) return false;
        end();
        return true;
    }
    block_.samples.clear();
  }
  return false;
}

/// Feeds the decoder with the next sample; unless its sound begins at `frame` or later, which is
/// Ready, or there is none now.
Outcome AudioTrack::feed(int64_t frame) {
  const Outcome outcome = readSample();
  if (outcome == Outcome::Again) return outcome;
  if (outcome != Outcome::Ready || (sample_->isDiscontinuity && !decoderIsEmpty_)) {
    drain();
    return Outcome::Working;
  }
  if (decoderIsEmpty_) {
    // An empty decoder gives nothing before the first sample that it is sent.
    skipSilenceUntil(soundStart(*sample_));
    if (nextFrame_ >= frame) return Outcome::Ready;
    if (!openDecoder()) return Outcome::Working;
  }
  decoderIsEmpty_ = false;
  // It is sent once more when what the decoder holds is out. One that is refused is damaged, too.
  if (decoder_->send(*sample_) != Outcome::Again) sample_.reset();
  return Outcome::Working;
}

/// Gives the block, unless it begins at `frame` or later.
Outcome AudioTrack::give(int64_t frame, AudioBlock& block) {
  nextFrame_ = std::max(nextFrame_, block_.firstFrame);
  if (nextFrame_ >= frame) return Outcome::Ready;
  block = std::exchange(block_, {});
  nextFrame_ = block.end();
  volume_.apply(block.firstFrame, block.samples);
  return Outcome::Ready;
}

/// As far as the source tells without being read.
bool AudioTrack::hasSoundBefore(int64_t frame) {
  const CMTime start = source_->emptyUntil(trackID_, CMTimeMake(nextFrame_, sampleRate_));
  if (CMTIME_IS_POSITIVE_INFINITY(start)) {
    end();
    return false;
  }
  skipSilenceUntil(start);
  return nextFrame_ < frame;
}

bool AudioTrack::seekCursor() {
  if (!cursor_) {
    cursor_ = source_->openCursor(trackID_).valueOr(nullptr);
    if (cursor_ && readyHandler_) cursor_->setReadyHandler(readyHandler_);
  }
  cursorIsPlaced_ = cursor_ && cursor_->seek(CMTimeMake(nextFrame_, sampleRate_));
  return cursorIsPlaced_;
}

/// Opens a decoder for the samples that come now; they may be of another kind than those before.
bool AudioTrack::openDecoder() {
  const AVCodecParameters& parameters = cursor_->codecParameters();
  if (decoder_ && decoder_->decodes(parameters)) return true;
  decoder_ = openDecoder_(parameters, sampleRate_).valueOr(nullptr);
  if (!decoder_) fail();
  return decoder_ != nullptr;
}

Outcome AudioTrack::readSample() {
  if (sample_) return Outcome::Ready;
  Sample sample;
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Ready) sample_ = std::move(sample);
  return outcome;
}

/// Cuts off what is not wanted of the block that was decoded; whether something is left.
bool AudioTrack::isWanted() {
  if (isOutOfReach(block_.firstFrame)) return false;
  decodedEnd_ = block_.end();
  if (block_.end() <= nextFrame_) return false;
  if (block_.firstFrame < nextFrame_) {
    const auto unwanted = 2 * (nextFrame_ - block_.firstFrame);
    block_.samples.erase(block_.samples.begin(), block_.samples.begin() + unwanted);
    block_.firstFrame = nextFrame_;
  }
  return true;
}

/// Has the decoder give what it still holds, and then say that this was all.
void AudioTrack::drain() {
  if (decoderIsEmpty_) {
    end();
  } else {
    decoder_->drain();
  }
}

void AudioTrack::resetDecoder() {
  if (!decoderIsEmpty_) decoder_->reset();
  decoderIsEmpty_ = true;
}

void AudioTrack::skipSilenceUntil(CMTime time) {
  if (!CMTIME_IS_NUMERIC(time)) return;
  const auto frame = static_cast<int64_t>(std::floor(framePosition(time, sampleRate_)));
  if (!isOutOfReach(frame)) nextFrame_ = std::max(nextFrame_, frame);
}

bool AudioTrack::isOutOfReach(int64_t frame) const {
  if (frame - nextFrame_ <= kLongestGapSeconds * sampleRate_) return false;
  const CMTime duration = source_->duration();
  return !CMTIME_IS_NUMERIC(duration) || frame > framePosition(duration, sampleRate_);
}

void AudioTrack::fail() {
  failed_ = true;
  ended_ = true;
}

void AudioTrack::end() {
  ended_ = true;
  endFrame_ = std::max(endFrame_.value_or(0), decodedEnd_);
}

}  // namespace zaffo::media
