// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "platform/avfoundation/AVAudioMix.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/media/Decoding.h"
#include "platform/media/output/CapturedOutput.h"

namespace zaffo {

/// A loop of a clip's picture and sound, laid down by hand: the copies of the sound on two tracks
/// in turn, each 0.05 s longer than the picture's, with a cross-fade over that at each seam.
struct LoopedClip {
  static constexpr CMTime kTrim = CMTimeMake(50'000'000, 1'000'000'000);

  /// `loop`: from seam to seam; invalid for the asset's length without the trim at both ends.
  LoopedClip(const std::shared_ptr<AVAsset>& asset, int copies, bool fadesIn,
             CMTime loop = kCMTimeInvalid)
      : clip(asset), length(CMTIME_IS_VALID(loop) ? loop : asset->duration() - kTrim - kTrim) {
    lay(AVMediaTypeVideo, copies, length);
    lay(AVMediaTypeAudio, copies, length + kTrim);
    mix->setInputParameters(parameters(copies, fadesIn));
  }

  [[nodiscard]] std::shared_ptr<AVPlayerItem> item() const {
    auto made = AVPlayerItem::playerItemWithAsset(composition);
    made->setAudioMix(mix);
    return made;
  }
  [[nodiscard]] CMTime seam(int index) const { return CMTimeMultiply(length, index); }

  std::shared_ptr<AVAsset> clip;
  CMTime length;
  std::shared_ptr<AVMutableComposition> composition = AVMutableComposition::create();
  std::shared_ptr<AVMutableAudioMix> mix = AVMutableAudioMix::audioMix();
  std::vector<std::shared_ptr<AVMutableCompositionTrack>> soundTracks;

 private:
  void lay(AVMediaType type, int copies, CMTime duration) {
    const auto sources = clip->tracksWithMediaType(type);
    if (sources.empty()) return;
    const int tracks = type == AVMediaTypeAudio ? 2 : 1;
    std::vector<std::shared_ptr<AVMutableCompositionTrack>> used;
    for (int i = 0; i < tracks; ++i) {
      used.push_back(composition->addMutableTrackWithMediaType(type, 0));
    }
    for (int copy = 0; copy < copies; ++copy) {
      NSErrorPtr error;
      const auto& track = used[static_cast<std::size_t>(copy % tracks)];
      EXPECT_TRUE(track->insertTimeRange({kTrim, duration}, sources.front(), seam(copy), &error))
          << error->localizedDescription();
    }
    if (type == AVMediaTypeAudio) soundTracks = used;
  }

  [[nodiscard]] AVAudioMix::InputParameters parameters(int copies, bool fadesIn) const {
    if (soundTracks.empty()) return {};
    std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> made;
    for (const auto& track : soundTracks) {
      made.push_back(AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
          std::shared_ptr<const AVMutableCompositionTrack>(track)));
    }
    if (fadesIn) {
      const CMTime end = CMTimeMinimum(length, CMTimeMake(2, 1));
      made[0]->setVolumeRampFromStartVolume(0, 1, CMTimeRangeMake(kCMTimeZero, end));
    } else {
      made[0]->setVolume(1, kCMTimeZero);
    }
    made[1]->setVolume(0, kCMTimeZero);
    for (int i = 1; i < copies; ++i) {
      const CMTimeRange overlap{seam(i), kTrim};
      made[static_cast<std::size_t>((i - 1) % 2)]->setVolumeRampFromStartVolume(1, 0, overlap);
      made[static_cast<std::size_t>(i % 2)]->setVolumeRampFromStartVolume(0, 1, overlap);
    }
    return {made.begin(), made.end()};
  }
};

/// The sum that a composition's sound tracks should make, from the source's own decoded samples.
/// For compositions whose segments begin on output frames.
class ReferenceMix {
 public:
  ReferenceMix(const LoopedClip& loop, media::Sound source)
      : loop_(loop), source_(std::move(source)) {}

  /// Interleaved stereo of the frames [first, end) of the composition.
  [[nodiscard]] std::vector<float> frames(int64_t first, int64_t end) const {
    std::vector<float> sum(static_cast<std::size_t>(2 * (end - first)));
    for (std::size_t i = 0; i < loop_.soundTracks.size(); ++i) {
      for (const auto& segment : loop_.soundTracks[i]->segments()) {
        if (!segment.isEmpty()) add(segment, ramps(i), first, sum);
      }
    }
    return sum;
  }

 private:
  static constexpr double kRate = media::kTestOutputRate;
  static int64_t frame(CMTime time) { return std::llround(CMTimeGetSeconds(time) * kRate); }

  [[nodiscard]] const std::vector<AVVolumeRamp>& ramps(std::size_t track) const {
    return loop_.mix->inputParameters()[track]->volumeRamps();
  }

  void add(const AVCompositionTrackSegment& segment, const std::vector<AVVolumeRamp>& volume,
           int64_t first, std::vector<float>& sum) const {
    const int64_t offset = frame(segment.target.start) - frame(segment.source.start);
    const int64_t from = std::max(first, frame(segment.target.start));
    const int64_t until =
        std::min({first + static_cast<int64_t>(sum.size() / 2),
                  frame(CMTimeRangeGetEnd(segment.target)), source_.frames() + offset});
    for (int64_t n = from; n < until; ++n) {
      const double gain = gainAt(volume, static_cast<double>(n) / kRate);
      for (int side = 0; side < 2; ++side) {
        sum[static_cast<std::size_t>(2 * (n - first) + side)] += static_cast<float>(
            gain * source_.samples[static_cast<std::size_t>(2 * (n - offset) + side)]);
      }
    }
  }

  static double gainAt(const std::vector<AVVolumeRamp>& ramps, double seconds) {
    double gain = 1;
    for (const AVVolumeRamp& ramp : ramps) {
      const double start = CMTimeGetSeconds(ramp.range.start);
      const double length = CMTimeGetSeconds(ramp.range.duration);
      if (seconds < start - 1e-9) break;
      const double part = length > 0 ? std::min(1.0, (seconds - start) / length) : 1;
      gain = ramp.start + part * (double{ramp.end} - ramp.start);
    }
    return gain;
  }

  const LoopedClip& loop_;
  const media::Sound source_;
};

/// The largest difference of two sounds, and where it is.
struct Difference {
  float largest = 0;
  std::size_t frame = 0;

  Difference(const std::vector<float>& a, const std::vector<float>& b) {
    EXPECT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
      if (std::abs(a[i] - b[i]) <= largest) continue;
      largest = std::abs(a[i] - b[i]);
      frame = i / 2;
    }
  }
};

}  // namespace zaffo
