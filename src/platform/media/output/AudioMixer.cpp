// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/AudioMixer.h"

#include <algorithm>
#include <utility>

namespace zaffo::media {

AudioMixer::AudioMixer() : current_(std::make_unique<const InputSet>()) {
  published_.store(current_.get());
}

AudioMixer::~AudioMixer() = default;

std::shared_ptr<InputChannel> AudioMixer::add(int64_t capacityFrames) {
  auto channel = std::make_shared<InputChannel>(capacityFrames, nextFrame_);
  std::vector<OldSet> unused;
  MutexLock lock(inputsMutex_);
  auto next = std::make_unique<InputSet>(*current_);
  next->channels.push_back(channel);
  publishWhileLocked(std::move(next));
  unused = takeUnusedWhileLocked();
  return channel;
}

void AudioMixer::remove(const std::shared_ptr<InputChannel>& channel) {
  channel->stop();
  MutexLock lock(inputsMutex_);
  leaving_.push_back(channel);
}

uint64_t AudioMixer::setTap(std::shared_ptr<SampleTap> tap) {
  MutexLock lock(inputsMutex_);
  auto next = std::make_unique<InputSet>(*current_);
  next->tap = std::move(tap);
  publishWhileLocked(std::move(next));
  return oldSets_.back().ticket;
}

bool AudioMixer::sweep() {
  std::vector<OldSet> unused;
  MutexLock lock(inputsMutex_);
  const auto gone = std::partition(leaving_.begin(), leaving_.end(),
                                   [](const auto& channel) { return !channel->silent(); });
  if (gone != leaving_.end()) {
    auto next = std::make_unique<InputSet>(*current_);
    for (auto channel = gone; channel != leaving_.end(); ++channel)
      std::erase(next->channels, *channel);
    leaving_.erase(gone, leaving_.end());
    publishWhileLocked(std::move(next));
  }
  unused = takeUnusedWhileLocked();
  return !leaving_.empty() || !oldSets_.empty();
}

size_t AudioMixer::inputCount() const {
  MutexLock lock(inputsMutex_);
  return current_->channels.size();
}

void AudioMixer::publishWhileLocked(std::unique_ptr<const InputSet> set) {
  published_.store(set.get());
  oldSets_.push_back({std::exchange(current_, std::move(set)), gate_.ticket()});
}

/// The caller lets go of them, after it has unlocked.
std::vector<AudioMixer::OldSet> AudioMixer::takeUnusedWhileLocked() {
  std::vector<OldSet> unused;
  const auto passed = std::partition(oldSets_.begin(), oldSets_.end(), [this](const OldSet& old) {
    return !gate_.hasPassed(old.ticket);
  });
  std::move(passed, oldSets_.end(), std::back_inserter(unused));
  oldSets_.erase(passed, oldSets_.end());
  return unused;
}

bool AudioMixer::render(int64_t first, std::span<float> out) {
  std::fill(out.begin(), out.end(), 0.0f);
  const InputSet& set = *published_.load();
  const int64_t next = nextFrame_.load(std::memory_order_relaxed);
  const auto repeated = static_cast<size_t>(
      2 * std::clamp(next - first, int64_t{0}, static_cast<int64_t>(out.size() / 2)));
  const auto pause = out.first(repeated);
  const auto sound = out.subspan(repeated);
  const int64_t begin = std::max(first, next);
  bool inUse = false;
  for (const auto& channel : set.channels) {
    if (!pause.empty()) channel->mixPause(pause);
    if (!sound.empty() && channel->mix(begin, sound)) inUse = true;
  }
  if (sound.empty()) return true;
  if (set.tap) set.tap->push(begin, sound);
  const int64_t end = begin + static_cast<int64_t>(sound.size() / 2);
  if (inUse) lastActiveFrame_.store(end, std::memory_order_release);
  nextFrame_.store(end, std::memory_order_release);
  return inUse;
}

}  // namespace zaffo::media
