// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/coremedia/CMTimeRange.h"

namespace zaffo {

class AVMutableCompositionTrack;

/// The volume of a track over a stretch of time: linear from `start` to `end`, then `end` holds
/// until the next ramp begins. A range without length sets the volume to `end` at its start.
struct AVVolumeRamp {
  CMTimeRange range;
  float start = 1;
  float end = 1;
};

/// How loud one track of an item is over time; 1 before the first ramp. Thread: one at a time while
/// it is being set up, then any.
class ZAFFO_EXPORT AVMutableAudioMixInputParameters {
 public:
  /// For the track's ID, 0 without a track.
  [[nodiscard]] static std::shared_ptr<AVMutableAudioMixInputParameters>
  audioMixInputParametersWithTrack(const std::shared_ptr<const AVMutableCompositionTrack>& track);
  [[nodiscard]] static std::shared_ptr<AVMutableAudioMixInputParameters>
  audioMixInputParametersWithTrack(const std::shared_ptr<const AVAssetTrack>& track);

  [[nodiscard]] int trackID() const { return trackID_; }
  /// Volumes are 0 to 1; others are limited to that. Of ramps that overlap the one set last holds
  /// in its range, and the other before it and after it. A range that is not valid and finite, or a
  /// volume that is not finite, changes nothing.
  void setVolumeRampFromStartVolume(float startVolume, float endVolume, CMTimeRange timeRange);
  /// From `atTime` until the next ramp begins; a ramp under way or beginning then ends there.
  void setVolume(float volume, CMTime atTime);
  /// By rising start, not overlapping.
  [[nodiscard]] const std::vector<AVVolumeRamp>& volumeRamps() const { return ramps_; }

 private:
  explicit AVMutableAudioMixInputParameters(int trackID) : trackID_(trackID) {}
  void insert(AVVolumeRamp ramp);

  const int trackID_;
  std::vector<AVVolumeRamp> ramps_;
};

/// How the sound tracks of an item are mixed: per sample in float, each by its parameters, then
/// summed. A track without parameters is heard at full volume.
class ZAFFO_EXPORT AVAudioMix {
 public:
  using InputParameters = std::vector<std::shared_ptr<const AVMutableAudioMixInputParameters>>;

  virtual ~AVAudioMix() = default;
  [[nodiscard]] const InputParameters& inputParameters() const { return inputParameters_; }

 protected:
  InputParameters inputParameters_;
};

/// Thread: one at a time while it is being set up; not changed once an item has it.
class ZAFFO_EXPORT AVMutableAudioMix final : public AVAudioMix {
 public:
  [[nodiscard]] static std::shared_ptr<AVMutableAudioMix> audioMix();
  void setInputParameters(InputParameters parameters) { inputParameters_ = std::move(parameters); }
};

}  // namespace zaffo
