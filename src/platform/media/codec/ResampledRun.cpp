// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/ResampledRun.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace zaffo::media {

namespace {

/// The number of samples of silence that bring a sample at `position` closest to the grid: the
/// smallest that is as good as any, give or take what times are rounded by.
int silenceBefore(double position, int sourceRate, int outputRate) {
  constexpr double kRounding = 1e-3;
  const int phases = sourceRate / std::gcd(sourceRate, outputRate);
  const double step = static_cast<double>(outputRate) / sourceRate;
  const double enough = 0.5 / phases + kRounding;
  int best = 0;
  double least = 1;
  for (int count = 0; count < phases && least > enough; ++count) {
    const double start = position - count * step;
    const double distance = std::abs(start - std::round(start));
    if (distance < least) best = count;
    least = std::min(least, distance);
  }
  return best;
}

}  // namespace

double ResampledRun::positionOf(int64_t sourceSample) const {
  return origin_ + static_cast<double>(sourceSample) * outputRate_ / sourceRate_;
}

int ResampledRun::begin(const AVFrame& frame, double position) {
  cancel();
  if (const int result = resampler_.prepare(frame); result < 0) return result;
  sourceRate_ = frame.sample_rate;
  consumed_ = 0;
  const int silence = silenceBefore(position, sourceRate_, outputRate_);
  const double length = static_cast<double>(silence) * outputRate_ / sourceRate_;
  nextFrame_ = std::llround(position - length);
  origin_ = static_cast<double>(nextFrame_) + length;
  active_ = true;
  return silence > 0 ? resampler_.injectSilence(silence) : 0;
}

int ResampledRun::add(const AVFrame& frame, const HeardPart& part, AudioBlock& block) {
  remember(part);
  consumed_ += frame.nb_samples;
  const int result = resampler_.convert(frame, block.samples);
  place(block);
  return result;
}

int ResampledRun::finish(AudioBlock& block) {
  const int result = resampler_.finish(block.samples);
  place(block);
  cancel();
  return result;
}

void ResampledRun::cancel() {
  active_ = false;
  heard_.clear();
}

void ResampledRun::remember(const HeardPart& part) {
  const Span span{std::max<int64_t>(part.from, std::llround(positionOf(consumed_ + part.first))),
                  std::min<int64_t>(part.until, std::llround(positionOf(consumed_ + part.end)))};
  if (span.first >= span.end) return;
  if (!heard_.empty() && heard_.back().end == span.first) {
    heard_.back().end = span.end;
  } else {
    heard_.push_back(span);
  }
}

void ResampledRun::place(AudioBlock& block) {
  block.firstFrame = nextFrame_;
  nextFrame_ = block.end();
  cutToHeard(block);
}

/// What is not heard between two parts that are is silenced: it lies within one block.
void ResampledRun::cutToHeard(AudioBlock& block) {
  while (!heard_.empty() && heard_.front().end <= block.firstFrame) heard_.pop_front();
  if (heard_.empty() || heard_.front().first >= block.end()) return block.samples.clear();
  const auto sampleOf = [&block](int64_t frame) {
    return block.samples.begin() + 2 * (frame - block.firstFrame);
  };
  const int64_t first = std::max(heard_.front().first, block.firstFrame);
  int64_t end = first;
  for (const Span& span : heard_) {
    if (span.first >= block.end()) break;
    if (span.first > end) std::fill(sampleOf(end), sampleOf(span.first), 0.0f);
    end = std::min(span.end, block.end());
  }
  block.samples.erase(sampleOf(end), block.samples.end());
  block.samples.erase(block.samples.begin(), sampleOf(first));
  block.firstFrame = first;
}

}  // namespace zaffo::media
