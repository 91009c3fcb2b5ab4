#include "platform/media/AudioTrack.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::media {

namespace {
constexpr double kSlowestAudibleRate = 0.5;
constexpr double kFastestAudibleRate = 2.0;
constexpr int64_t kLongestGapSeconds = 60;
/// Room for what the output has not taken yet, and for the end of a decoded block.
constexpr double kSlackSeconds = 0.2;
}  // namespace

AudioTrack::AudioTrack(std::shared_ptr<SampleSource> source, int trackID, AudioOutput& output)
    : source_(std::move(source)),
      trackID_(trackID),
      output_(output),
      sampleRate_(output.sampleRate()) {}

bool AudioTrack::prefill(CMTime time) {
  const int64_t frame = std::llround(std::max(0.0, CMTimeGetSeconds(time)) * sampleRate_);
  if (failed_ || (frame == prefilledFrame_ && !prefilling_)) return true;
  if (frame != prefilledFrame_) {
    stretch_.reset();
    prefilled_.clear();
    pending_.clear();
    pendingOffset_ = 0;
    prefilledFrame_ = frame;
    prefilledIsAll_ = !seekDecoder(frame);
    if (prefilledIsAll_) return true;
    prefilling_ = true;
  }
  const auto wanted = static_cast<std::size_t>(kPrefillSeconds * sampleRate_) * 2;
  while (pending_.size() < wanted) {
    const Decoded decoded = decodeBlock();
    if (decoded == Decoded::Waiting) return false;
    if (decoded == Decoded::End || ended_) break;
  }
  prefilling_ = false;
  if (pending_.size() > 2 * wanted) {  // a gap: what follows it is decoded again when it is played
    pending_.resize(wanted);
    decoderFrame_ = -1;
    ended_ = false;
  }
  prefilled_ = std::exchange(pending_, {});
  prefilled_.shrink_to_fit();
  prefilledIsAll_ = ended_;
  return true;
}

void AudioTrack::start(int64_t outputFrame, double rate) {
  stretch_.reset();
  pending_.clear();
  pendingOffset_ = 0;
  const bool audible = rate >= kSlowestAudibleRate && rate <= kFastestAudibleRate;
  silent_ = !audible || failed_ || prefilledFrame_ < 0;
  if (silent_) return stop();
  if (!input_) {
    input_ = output_.addInput(static_cast<int64_t>((kAheadSeconds + kSlackSeconds) * sampleRate_));
    input_->setVolume(volume_);
  }
  if (rate != 1.0) stretch_ = TimeStretch::create(sampleRate_, rate);
  input_->restart(outputFrame);
  const int64_t prefilledEnd = prefilledFrame_ + static_cast<int64_t>(prefilled_.size() / 2);
  append(prefilled_);
  writePending();
  const bool decoderIsThere = decoder_ && decoderFrame_ == prefilledEnd && !ended_;
  if (prefilledIsAll_ || (!decoderIsThere && !seekDecoder(prefilledEnd))) endSound();
  nextFrame_ = prefilledEnd;
  writePending();
  fill();
}

void AudioTrack::fill() {
  if (!input_ || silent_) return;
  writePending();
  const auto ahead = static_cast<int64_t>(kAheadSeconds * sampleRate_);
  while (pendingOffset_ == pending_.size() && !ended_ &&
         input_->nextOutputFrame() - output_.earliestStartFrame() < ahead) {
    const Decoded decoded = decodeBlock();
    if (decoded == Decoded::Waiting) return;
    if (decoded == Decoded::End) endSound();
    writePending();
  }
}

std::optional<int64_t> AudioTrack::nextFillHostTime() const {
  if (!input_ || finished()) return std::nullopt;
  const double lowSeconds =
      static_cast<double>(input_->nextOutputFrame()) / sampleRate_ - kLowSeconds;
  return output_.clock()->hostTimeAtNanoseconds(std::llround(lowSeconds * 1e9));
}

void AudioTrack::stop() {
  if (input_) input_->stop();
  stretch_.reset();
  pending_.clear();
  pendingOffset_ = 0;
}

void AudioTrack::release() {
  input_.reset();
  stretch_.reset();
  decoder_.reset();
  cursor_.reset();
  decoderFrame_ = -1;
  pending_ = {};
  pendingOffset_ = 0;
}

void AudioTrack::setVolume(float volume) {
  volume_ = volume;
  if (input_) input_->setVolume(volume);
}

std::optional<CMTime> AudioTrack::endTime() const {
  if (failed_) return kCMTimeZero;
  if (!endFrame_) return std::nullopt;
  return CMTimeMake(*endFrame_, sampleRate_);
}

/// Puts the decoder where it gives the sound from `mediaFrame` on.
bool AudioTrack::seekDecoder(int64_t mediaFrame) {
  nextFrame_ = mediaFrame;
  decoderFrame_ = -1;
  ended_ = false;
  NSErrorPtr error;
  if (!cursor_) {
    cursor_ = source_->openCursor(trackID_, &error);
    if (cursor_ && readyHandler_) cursor_->setReadyHandler(readyHandler_);
  }
  if (cursor_ && cursor_->seek(CMTimeMake(mediaFrame, sampleRate_))) {
    if (decoder_) {
      decoder_->reset();
      return true;
    }
    decoder_ = AudioDecoder::open(cursor_->codecParameters(), sampleRate_, &error);
    if (decoder_) return true;
  }
  failed_ = true;
  ended_ = true;
  return false;
}

/// Decodes until something was appended to what is pending, or the track has ended.
AudioTrack::Decoded AudioTrack::decodeBlock() {
  while (true) {
    AudioBlock block;
    switch (decoder_->receive(block)) {
      case DecodeOutcome::Ok:
        take(block);
        return Decoded::Block;
      case DecodeOutcome::End:
        ended_ = true;
        endFrame_ = std::max<int64_t>(decoderFrame_, 0);
        return Decoded::End;
      case DecodeOutcome::Error:
        continue;
      case DecodeOutcome::Again:
        break;
    }
    Sample sample;
    switch (cursor_->next(sample)) {
      case ReadOutcome::Sample:
        // A damaged sample is a gap in the sound; the next one goes on in its place.
        static_cast<void>(decoder_->send(sample));
        break;
      case ReadOutcome::Again:
        return Decoded::Waiting;
      case ReadOutcome::End:
      case ReadOutcome::Error:
        decoder_->drain();
        break;
    }
  }
}

/// Appends the part of a block that is wanted, with silence where the track has a gap.
void AudioTrack::take(const AudioBlock& block) {
  const int64_t end = block.firstFrame + block.frames();
  decoderFrame_ = end;
  if (end <= nextFrame_) return;
  const int64_t skip = std::max<int64_t>(0, nextFrame_ - block.firstFrame);
  const int64_t gap = std::max<int64_t>(0, block.firstFrame - nextFrame_);
  if (gap > kLongestGapSeconds * sampleRate_) {
    ended_ = true;
    return;
  }
  if (gap > 0) append(std::vector<float>(static_cast<std::size_t>(gap) * 2));
  append(std::span(block.samples).subspan(static_cast<std::size_t>(skip) * 2));
  nextFrame_ = end;
}

void AudioTrack::append(std::span<const float> samples) {
  if (pendingOffset_ == pending_.size()) {
    pending_.clear();
    pendingOffset_ = 0;
  }
  if (stretch_) {
    stretch_->process(samples, pending_);
  } else {
    pending_.insert(pending_.end(), samples.begin(), samples.end());
  }
}

void AudioTrack::writePending() {
  const auto rest = std::span<const float>(pending_).subspan(pendingOffset_);
  if (rest.empty() || !input_) return;
  pendingOffset_ += static_cast<std::size_t>(input_->write(rest)) * 2;
}

void AudioTrack::endSound() {
  ended_ = true;
  if (stretch_) stretch_->finish(pending_);
  stretch_.reset();
}

}  // namespace zaffo::media
