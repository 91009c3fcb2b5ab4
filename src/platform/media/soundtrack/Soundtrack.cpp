// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/Soundtrack.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/FrameTime.h"

namespace zaffo::media {

namespace {

constexpr double kSlowestAudibleRate = 0.5;
constexpr double kFastestAudibleRate = 2.0;
/// Room for what the output has not taken yet, and for the end of a decoded block.
constexpr double kSlackSeconds = 0.2;
/// How much is read at a time: about a block of most codecs.
constexpr int64_t kPieceFrames = 1024;

VolumeEnvelope volumeOf(int trackID, std::span<const TrackVolume> volumes, int sampleRate) {
  const auto found = std::ranges::find(volumes, trackID, &TrackVolume::trackID);
  return found == volumes.end() ? VolumeEnvelope() : VolumeEnvelope(found->ramps, sampleRate);
}

}  // namespace

std::unique_ptr<Soundtrack> Soundtrack::create(const std::shared_ptr<SampleSource>& source,
                                               std::span<const TrackVolume> volumes,
                                               AudioOutput& output) {
  const int rate = output.sampleRate();
  std::vector<std::unique_ptr<AudioTrack>> used;
  for (const auto& track : source->tracks()) {
    if (track->mediaType != AVMediaTypeAudio) continue;
    if (!source->whyNotDecoded(track->trackID)) {
      used.push_back(std::make_unique<AudioTrack>(source, track->trackID, rate,
                                                  volumeOf(track->trackID, volumes, rate)));
    }
    if (!source->soundTracksAreOne()) break;
  }
  return used.empty() ? nullptr : std::make_unique<Soundtrack>(std::move(used), output);
}

Soundtrack::Soundtrack(std::vector<std::unique_ptr<AudioTrack>> tracks, AudioOutput& output)
    : sum_(std::move(tracks)), output_(output), sampleRate_(output.sampleRate()) {}

bool Soundtrack::prefill(CMTime time) {
  const int64_t frame = nearestFrame(CMTimeMaximum(time, kCMTimeZero), sampleRate_);
  if (frame == prefilledFrame_ && !prefilling_) return true;
  if (frame != prefilledFrame_) {
    stretch_.reset();
    prefilled_.clear();
    prefilledFrame_ = frame;
    prefilling_ = true;
    seek(frame);
  }
  const auto wanted = static_cast<std::size_t>(kPrefillSeconds * sampleRate_) * 2;
  while (prefilled_.size() < wanted && !ended_) {
    if (readSome() == Outcome::Again) return false;
    prefilled_.insert(prefilled_.end(), sound_.begin(), sound_.end());
  }
  prefilling_ = false;
  prefilled_.shrink_to_fit();
  prefilledIsAll_ = ended_;
  return true;
}

void Soundtrack::start(int64_t outputFrame, double rate) {
  stretch_.reset();
  pending_.clear();
  pendingOffset_ = 0;
  const bool audible = rate >= kSlowestAudibleRate && rate <= kFastestAudibleRate;
  silent_ = !audible || failed() || prefilledFrame_ < 0;
  if (silent_) return stop();
  if (!input_) {
    input_ = output_.addInput(static_cast<int64_t>((kAheadSeconds + kSlackSeconds) * sampleRate_));
    input_->setVolume(volume_);
  }
  if (rate != 1.0) stretch_ = TimeStretch::create(sampleRate_, rate);
  input_->restart(outputFrame);
  append(prefilled_);
  writePending();
  const int64_t prefilledEnd = prefilledFrame_ + static_cast<int64_t>(prefilled_.size() / 2);
  if (!prefilledIsAll_ && sum_.position() != prefilledEnd) seek(prefilledEnd);
  if (prefilledIsAll_) endSound();
  fill();
}

void Soundtrack::fill() {
  if (!input_ || silent_ || prefilling_ || isLeftBehind()) return;
  waiting_ = false;
  writePending();
  const auto ahead = static_cast<int64_t>(kAheadSeconds * sampleRate_);
  while (pendingOffset_ == pending_.size() && !ended_ &&
         input_->nextOutputFrame() - output_.renderLimit() < ahead) {
    if (readSome() == Outcome::Again) return;
    append(sound_);
    if (ended_) endSound();
    writePending();
  }
}

std::optional<int64_t> Soundtrack::nextFillHostTime() const {
  if (!input_ || finished() || waiting_ || isLeftBehind()) return std::nullopt;
  const int64_t left = input_->nextOutputFrame() - output_.renderLimit();
  const double seconds = static_cast<double>(left) / sampleRate_ - kLowSeconds;
  return TimeSource::now() + std::llround(std::max(seconds, kLowSeconds / 2) * 1e9);
}

std::optional<int64_t> Soundtrack::runsDryHostTime() const {
  if (!input_ || finished() || !waiting_) return std::nullopt;
  const double seconds = static_cast<double>(input_->nextOutputFrame()) / sampleRate_;
  return output_.clock()->hostTimeAtNanoseconds(std::llround(seconds * 1e9));
}

bool Soundtrack::isLeftBehind() const {
  // What the output does not take is late through no fault of a leap.
  if (!input_ || finished() || pendingOffset_ < pending_.size()) return false;
  const int64_t late = output_.earliestStartFrame() - input_->nextOutputFrame();
  return late > static_cast<int64_t>(kLeftBehindSeconds * sampleRate_);
}

void Soundtrack::stop() {
  if (input_) input_->stop();
  stretch_.reset();
  pending_.clear();
  pendingOffset_ = 0;
}

void Soundtrack::release() {
  input_.reset();
  stretch_.reset();
  sum_.release();
  sound_ = {};
  pending_ = {};
  pendingOffset_ = 0;
}

void Soundtrack::setVolume(float volume) {
  volume_ = volume;
  if (input_) input_->setVolume(volume);
}

std::optional<CMTime> Soundtrack::endTime() const {
  const auto end = sum_.endFrame();
  return end ? std::optional(CMTimeMake(*end, sampleRate_)) : std::nullopt;
}

void Soundtrack::seek(int64_t mediaFrame) {
  ended_ = false;
  sum_.seek(mediaFrame);
}

/// Reads the next sound, and notes when there is none, or none yet.
Outcome Soundtrack::readSome() {
  const Outcome outcome = sum_.read(kPieceFrames, sound_);
  waiting_ = outcome == Outcome::Again;
  ended_ = outcome == Outcome::End;
  return outcome;
}

void Soundtrack::append(std::span<const float> samples) {
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

void Soundtrack::writePending() {
  const auto rest = std::span<const float>(pending_).subspan(pendingOffset_);
  if (rest.empty() || !input_) return;
  pendingOffset_ += static_cast<std::size_t>(input_->write(rest)) * 2;
}

void Soundtrack::endSound() {
  ended_ = true;
  if (stretch_) stretch_->finish(pending_);
  stretch_.reset();
}

}  // namespace zaffo::media
