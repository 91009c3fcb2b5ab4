// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAudioMix.h"

#include <algorithm>
#include <cmath>

#include "platform/avfoundation/AVComposition.h"

namespace zaffo {

namespace {

CMTime endOf(const AVVolumeRamp& ramp) {
  return CMTimeRangeGetEnd(ramp.range);
}

float volumeAt(const AVVolumeRamp& ramp, CMTime time) {
  const double length = CMTimeGetSeconds(ramp.range.duration);
  if (length <= 0) return ramp.end;
  const double part = std::clamp(CMTimeGetSeconds(time - ramp.range.start) / length, 0.0, 1.0);
  return static_cast<float>(ramp.start + part * (double{ramp.end} - ramp.start));
}

AVVolumeRamp partBefore(const AVVolumeRamp& ramp, CMTime time) {
  return {CMTimeRangeFromTimeToTime(ramp.range.start, time), ramp.start, volumeAt(ramp, time)};
}

AVVolumeRamp partAfter(const AVVolumeRamp& ramp, CMTime time) {
  return {CMTimeRangeFromTimeToTime(time, endOf(ramp)), volumeAt(ramp, time), ramp.end};
}

bool isFinite(CMTimeRange range) {
  return CMTIMERANGE_IS_VALID(range) && CMTIME_IS_NUMERIC(range.start) &&
         CMTIME_IS_NUMERIC(range.duration);
}

}  // namespace

std::shared_ptr<AVMutableAudioMixInputParameters>
AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
    const std::shared_ptr<const AVMutableCompositionTrack>& track) {
  return std::shared_ptr<AVMutableAudioMixInputParameters>(
      new AVMutableAudioMixInputParameters(track ? track->trackID() : 0));
}

std::shared_ptr<AVMutableAudioMixInputParameters>
AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
    const std::shared_ptr<const AVAssetTrack>& track) {
  return std::shared_ptr<AVMutableAudioMixInputParameters>(
      new AVMutableAudioMixInputParameters(track ? track->trackID : 0));
}

void AVMutableAudioMixInputParameters::setVolumeRampFromStartVolume(float startVolume,
                                                                    float endVolume,
                                                                    CMTimeRange timeRange) {
  if (!std::isfinite(startVolume) || !std::isfinite(endVolume) || !isFinite(timeRange)) return;
  insert({timeRange, std::clamp(startVolume, 0.0f, 1.0f), std::clamp(endVolume, 0.0f, 1.0f)});
}

void AVMutableAudioMixInputParameters::setVolume(float volume, CMTime atTime) {
  setVolumeRampFromStartVolume(volume, volume, CMTimeRangeMake(atTime, kCMTimeZero));
}

/// Ramps seldom come out of order: mostly the new one goes to the end and cuts nothing.
void AVMutableAudioMixInputParameters::insert(AVVolumeRamp ramp) {
  const CMTime start = ramp.range.start;
  const CMTime end = endOf(ramp);
  const bool isPoint = CMTIMERANGE_IS_EMPTY(ramp.range);
  const auto first = std::ranges::partition_point(ramps_, [start](const AVVolumeRamp& old) {
    return old.range.start < start && endOf(old) <= start;
  });
  std::vector<AVVolumeRamp> replacement;
  auto last = first;
  for (; last != ramps_.end(); ++last) {
    const bool touched = last->range.start < end || last->range.start == start;
    if (!touched) break;
    if (last->range.start < start) replacement.push_back(partBefore(*last, start));
    if (endOf(*last) > end && !isPoint) replacement.push_back(partAfter(*last, end));
  }
  const auto place =
      std::find_if(replacement.begin(), replacement.end(),
                   [&](const AVVolumeRamp& part) { return part.range.start >= end; });
  replacement.insert(place, ramp);
  ramps_.insert(ramps_.erase(first, last), replacement.begin(), replacement.end());
}

std::shared_ptr<AVMutableAudioMix> AVMutableAudioMix::audioMix() {
  return std::make_shared<AVMutableAudioMix>();
}

}  // namespace zaffo
