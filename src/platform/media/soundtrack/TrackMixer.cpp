// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/TrackMixer.h"

#include <algorithm>
#include <utility>

namespace zaffo::media {

TrackMixer::TrackMixer(std::vector<std::unique_ptr<AudioTrack>> tracks)
    : tracks_(std::move(tracks)) {}

void TrackMixer::seek(int64_t frame) {
  position_ = frame;
  mixed_.clear();
  for (const auto& track : tracks_) track->seek(frame);
}

void TrackMixer::release() {
  position_.reset();
  mixed_ = {};
  for (const auto& track : tracks_) track->release();
}

Outcome TrackMixer::read(int64_t frames, std::vector<float>& sound) {
  sound.clear();
  const int64_t target = *position_ + frames;
  bool waiting = false;
  while (!waiting) {
    AudioTrack& track = leastKnown();
    if (track.knownUntil() >= target) break;
    AudioBlock block;
    waiting = track.read(target, block) == Outcome::Again;
    if (!block.samples.empty()) add(std::move(block));
  }
  const int64_t known = leastKnown().knownUntil();
  const int64_t wanted = known == AudioTrack::kForEver ? mixedEnd() : std::max(target, mixedEnd());
  give(std::min(known, wanted), sound);
  if (!sound.empty()) return Outcome::Ready;
  return waiting ? Outcome::Again : Outcome::End;
}

bool TrackMixer::failed() const {
  return std::ranges::all_of(tracks_, [](const auto& track) { return track->failed(); });
}

std::optional<int64_t> TrackMixer::endFrame() const {
  int64_t end = 0;
  for (const auto& track : tracks_) {
    if (track->failed()) continue;
    if (!track->endFrame()) return std::nullopt;
    end = std::max(end, *track->endFrame());
  }
  return end;
}

void TrackMixer::setReadyHandler(const std::function<void()>& handler) {
  for (const auto& track : tracks_) track->setReadyHandler(handler);
}

AudioTrack& TrackMixer::leastKnown() const {
  return **std::ranges::min_element(tracks_, {}, &AudioTrack::knownUntil);
}

int64_t TrackMixer::mixedEnd() const {
  return *position_ + static_cast<int64_t>(mixed_.size() / 2);
}

void TrackMixer::add(AudioBlock block) {
  if (mixed_.empty() && block.firstFrame == *position_) {
    mixed_ = std::move(block.samples);
    return;
  }
  const auto offset = static_cast<std::size_t>(2 * (block.firstFrame - *position_));
  mixed_.resize(std::max(mixed_.size(), offset + block.samples.size()));
  for (std::size_t i = 0; i < block.samples.size(); ++i) mixed_[offset + i] += block.samples[i];
}

/// Moves what lies before `end` into `sound`.
void TrackMixer::give(int64_t end, std::vector<float>& sound) {
  const auto count = static_cast<std::size_t>(std::max<int64_t>(0, end - *position_)) * 2;
  if (count >= mixed_.size()) {
    sound.swap(mixed_);
    sound.resize(count);
  } else {
    const auto rest = mixed_.begin() + static_cast<std::ptrdiff_t>(count);
    sound.assign(mixed_.begin(), rest);
    mixed_.erase(mixed_.begin(), rest);
  }
  *position_ += static_cast<int64_t>(count / 2);
}

}  // namespace zaffo::media
