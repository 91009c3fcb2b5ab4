// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/VolumeEnvelope.h"

#include <algorithm>
#include <cmath>

#include "platform/media/FrameTime.h"

namespace zaffo::media {

namespace {

void scale(std::span<float> samples, float gain) {
  if (gain == 1) return;
  for (float& sample : samples) sample *= gain;
}

}  // namespace

VolumeEnvelope::VolumeEnvelope(std::span<const VolumeRamp> ramps, int sampleRate) {
  pieces_.reserve(ramps.size());
  for (const VolumeRamp& ramp : ramps) {
    const double start = framePosition(ramp.range.start, sampleRate);
    const double end = framePosition(CMTimeRangeGetEnd(ramp.range), sampleRate);
    const double slope = end > start ? (double{ramp.end} - ramp.start) / (end - start) : 0;
    pieces_.push_back({static_cast<int64_t>(std::ceil(start)), static_cast<int64_t>(std::ceil(end)),
                       start, slope, ramp.start, ramp.end});
  }
}

void VolumeEnvelope::apply(int64_t firstFrame, std::span<float> interleaved) const {
  const int64_t last = firstFrame + static_cast<int64_t>(interleaved.size() / 2);
  int64_t frame = firstFrame;
  const auto framesUntil = [&](int64_t end) {
    const auto count = static_cast<std::size_t>(std::clamp(end, frame, last) - frame);
    const auto frames = interleaved.first(2 * count);
    interleaved = interleaved.subspan(2 * count);
    frame += static_cast<int64_t>(count);
    return frames;
  };
  auto next = std::upper_bound(pieces_.begin(), pieces_.end(), firstFrame,
                               [](int64_t at, const Piece& piece) { return at < piece.first; });
  if (next == pieces_.begin()) {
    framesUntil(next == pieces_.end() ? last : next->first);
  } else {
    --next;
  }
  while (frame < last) {
    const bool isLast = next + 1 == pieces_.end();
    const int64_t end = isLast ? last : (next + 1)->first;
    double gain = next->start + next->slope * (static_cast<double>(frame) - next->startFrame);
    const auto ramp = framesUntil(std::min(end, next->rampEnd));
    for (std::size_t i = 0; i < ramp.size(); i += 2, gain += next->slope) {
      ramp[i] *= static_cast<float>(gain);
      ramp[i + 1] *= static_cast<float>(gain);
    }
    scale(framesUntil(end), next->end);
    ++next;
  }
}

}  // namespace zaffo::media
