// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/InputChannel.h"

#include <algorithm>
#include <cmath>

namespace zaffo::media {

namespace {

constexpr float kGainStep = 1.0f / kVolumeRampFrames;

float stepTowards(float value, float target) {
  return value < target ? std::min(target, value + kGainStep) : std::max(target, value - kGainStep);
}

void addScaled(std::span<const float> in, float gain, std::span<float> out) {
  const float* from = in.data();
  float* to = out.data();
  const size_t count = in.size();
  for (size_t i = 0; i < count; ++i) to[i] += gain * from[i];
}

}  // namespace

InputChannel::InputChannel(int64_t capacityFrames, const std::atomic<int64_t>& consumed)
    : consumed_(consumed), mailbox_(capacityFrames) {}

void InputChannel::restart(int64_t firstOutputFrame) {
  writing_ = &mailbox_.post(firstOutputFrame);
}

int64_t InputChannel::write(std::span<const float> interleaved) {
  return writing_ ? writing_->write(interleaved, consumed_.load(std::memory_order_acquire)) : 0;
}

int64_t InputChannel::writable() const {
  return writing_ ? writing_->writable(consumed_.load(std::memory_order_acquire)) : 0;
}

int64_t InputChannel::nextOutputFrame() const {
  return writing_ ? writing_->end() : 0;
}

void InputChannel::stop() {
  mailbox_.callOff();
}

void InputChannel::setVolume(float volume) {
  const float audible = std::isnan(volume) ? 0.0f : std::clamp(volume, 0.0f, 1.0f);
  volume_.store(audible, std::memory_order_relaxed);
}

bool InputChannel::silent() const {
  return mailbox_.isCalledOff() && !inUse_.load(std::memory_order_acquire);
}

bool InputChannel::mix(int64_t first, std::span<float> out) {
  if (ring_ && first != position_) cut();
  turnToLatest();
  const int64_t frames = static_cast<int64_t>(out.size() / 2);
  position_ = first + frames;
  if (!ring_) {
    tail_.mix(out);
    reportInUse(tail_.sounding());
    return inUse_.load(std::memory_order_relaxed);
  }
  reportInUse(true);
  const int64_t begin = std::clamp(ring_->start() - first, int64_t{0}, frames);
  const int64_t end = std::clamp(ring_->end() - first, begin, frames);
  const auto split = static_cast<size_t>(2 * end);
  if (begin < end) {
    const auto from = static_cast<size_t>(2 * begin);
    mixFrames(first + begin, out.subspan(from, split - from));
  }
  tail_.mix(out.first(split));
  // Run dry: from the last frame down to silence, so that the edge does not click.
  if (end < frames && presence_ > 0) {
    for (int i = 0; i < kFadeFrames; ++i) tail_.add(i, last_[0], last_[1]);
    presence_ = 0;
  }
  tail_.mix(out.subspan(split));
  return true;
}

void InputChannel::mixPause(std::span<float> out) {
  cut();
  tail_.mix(out);
}

void InputChannel::turnToLatest() {
  if (mailbox_.holdsRing()) {
    leaveRing();
    ring_ = mailbox_.take();
  }
  if (ring_ && mailbox_.isCalledOff(*ring_)) leaveRing();
}

void InputChannel::leaveRing() {
  if (!ring_) return;
  cut();
  mailbox_.giveBack(*ring_);
  ring_ = nullptr;
}

/// Moves what would have sounded next into the tail.
void InputChannel::cut() {
  if (presence_ == 0) return;
  const int64_t end = ring_->end();
  const float gain = gain_ * static_cast<float>(presence_) / kFadeFrames;
  float frame[2] = {last_[0], last_[1]};
  for (int i = 0; i < kFadeFrames; ++i) {
    if (position_ + i < end) {
      const auto source = ring_->contiguous(position_ + i, 1);
      frame[0] = gain * source[0];
      frame[1] = gain * source[1];
    }
    tail_.add(i, frame[0], frame[1]);
  }
  presence_ = 0;
}

void InputChannel::mixFrames(int64_t first, std::span<float> out) {
  const float target = volume_.load(std::memory_order_relaxed);
  if (presence_ == 0) gain_ = target;
  while (!out.empty()) {
    const auto in = ring_->contiguous(first, static_cast<int64_t>(out.size() / 2));
    size_t ramping = 0;
    if (presence_ < kFadeFrames || gain_ != target) {
      const auto fade = static_cast<size_t>(kFadeFrames - presence_);
      const auto slide = static_cast<size_t>(std::abs(target - gain_) * kVolumeRampFrames) + 1;
      ramping = std::min(in.size(), 2 * std::max(fade, slide));
      mixRamping(in.first(ramping), out.first(ramping));
    }
    addScaled(in.subspan(ramping), gain_, out.subspan(ramping, in.size() - ramping));
    const float edge = gain_ * static_cast<float>(presence_) / kFadeFrames;
    last_[0] = edge * in[in.size() - 2];
    last_[1] = edge * in[in.size() - 1];
    first += static_cast<int64_t>(in.size() / 2);
    out = out.subspan(in.size());
  }
}

void InputChannel::mixRamping(std::span<const float> in, std::span<float> out) {
  const float target = volume_.load(std::memory_order_relaxed);
  for (size_t i = 0; i < in.size(); i += 2) {
    gain_ = stepTowards(gain_, target);
    presence_ = std::min(presence_ + 1, kFadeFrames);
    const float gain = gain_ * static_cast<float>(presence_) / kFadeFrames;
    out[i] += gain * in[i];
    out[i + 1] += gain * in[i + 1];
  }
}

void InputChannel::reportInUse(bool inUse) {
  if (inUse_.load(std::memory_order_relaxed) != inUse) {
    inUse_.store(inUse, std::memory_order_release);
  }
}

}  // namespace zaffo::media
