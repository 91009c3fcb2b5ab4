// SPDX-License-Identifier: Apache-2.0
#include "loading/ZFZaffoLoopingComposition.h"

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace zaffo {

namespace {

using Parameters = AVMutableAudioMixInputParameters;

constexpr CMTimeScale kNanoseconds = 1'000'000'000;
constexpr double kWantedSeconds = 162.5;
constexpr unsigned kFewestSeams = 25;
constexpr unsigned kMostSeams = 50;
constexpr double kLongestFadeIn = 2.0;
constexpr std::size_t kAudioTracks = 2;
/// More than sums of times at different timescales can be off by, and too little to be heard.
constexpr CMTime kRounding = CMTimeMake(1, 1'000'000);

/// How many copies follow the first one. The bounds also handle what is not a number: an empty clip
/// fits infinitely often, one of unknown length not at all.
unsigned seamCount(CMTime duration) {
  const double quotient = kWantedSeconds / CMTimeGetSeconds(duration);
  if (quotient >= kMostSeams) return kMostSeams;
  return quotient > kFewestSeams ? static_cast<unsigned>(quotient) : kFewestSeams;
}

/// A range of a source track that is laid down again and again.
struct Piece {
  std::shared_ptr<const AVAssetTrack> track;
  CMTimeRange range;

  [[nodiscard]] bool insert(AVMutableCompositionTrack& into, CMTime time) const {
    return into.insertTimeRange(range, track, time, nullptr);
  }
};

/// One build: the tracks under construction and the seams between the copies.
class LoopBuild {
 public:
  LoopBuild(AVMutableComposition& composition, const AVAsset& asset)
      : duration_(asset.duration()),
        pictureLength_(
            CMTimeSubtract(duration_, ZFZaffoLoopingComposition::standardTotalTrimAmount())) {
    const auto trim = ZFZaffoLoopingComposition::standardTrim();
    const auto pictures = asset.tracksWithMediaType(AVMediaTypeVideo);
    const auto sounds = asset.tracksWithMediaType(AVMediaTypeAudio);
    picture_ = {pictures.front(), CMTimeRangeMake(trim, pictureLength_)};
    videoTrack_ = composition.addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    videoTrack_->setPreferredTransform(picture_.track->preferredTransform);
    if (sounds.empty()) return;
    sound_ = {sounds.front(), CMTimeRangeMake(trim, CMTimeSubtract(duration_, trim))};
    for (auto& track : audioTracks_)
      track = composition.addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  }

  [[nodiscard]] bool hasSound() const { return sound_.track != nullptr; }
  [[nodiscard]] CMTime pictureLength() const { return pictureLength_; }

  /// Lays down all the copies. False when the composition refuses one, except for the sound of the
  /// first copy, without which the others still follow.
  [[nodiscard]] bool layCopies() {
    if (!picture_.insert(*videoTrack_, kCMTimeZero)) return false;
    const bool hasFirstSound = !hasSound() || sound_.insert(*audioTracks_[0], kCMTimeZero);
    const unsigned count = seamCount(duration_);
    for (unsigned i = 0; i < count; ++i) {
      const CMTime seam = videoTrack_->timeRange().duration;
      if (!picture_.insert(*videoTrack_, seam)) return false;
      if (hasSound() && !laySound(*audioTracks_[startingAt(i)], seam)) return false;
      seams_.push_back(seam);
    }
    if (hasSound()) endSound();
    return hasFirstSound;
  }

  /// The parameters of both sound tracks, in order.
  [[nodiscard]] AVAudioMix::InputParameters mixParameters(bool fadesIn) const {
    std::array<std::shared_ptr<Parameters>, kAudioTracks> parameters;
    for (std::size_t i = 0; i < kAudioTracks; ++i)
      parameters[i] = Parameters::audioMixInputParametersWithTrack(audioTracks_[i]);
    setStart(*parameters[0], fadesIn);
    parameters[1]->setVolume(0, kCMTimeZero);
    for (std::size_t i = 0; i < seams_.size(); ++i) {
      const auto overlap = CMTimeRangeMake(seams_[i], ZFZaffoLoopingComposition::standardTrim());
      parameters[endingAt(i)]->setVolumeRampFromStartVolume(1, 0, overlap);
      parameters[startingAt(i)]->setVolumeRampFromStartVolume(0, 1, overlap);
    }
    return {parameters.begin(), parameters.end()};
  }

 private:
  /// Which sound track carries the copy that ends at a seam, and which one the copy that starts
  /// there.
  static std::size_t endingAt(std::size_t seam) { return seam % kAudioTracks; }
  static std::size_t startingAt(std::size_t seam) { return (seam + 1) % kAudioTracks; }

  /// Sound longer than two rounds is faded out when the next copy comes on its track, which it
  /// would otherwise push back.
  [[nodiscard]] bool laySound(AVMutableCompositionTrack& track, CMTime seam) const {
    cutOff(track, seam);
    return sound_.insert(track, seam);
  }

  /// However long the sound is, the last copy ends as long after its picture as the others do.
  void endSound() {
    const CMTime end =
        CMTimeAdd(videoTrack_->timeRange().duration, ZFZaffoLoopingComposition::standardTrim());
    for (const auto& track : audioTracks_) cutOff(*track, end);
  }

  static void cutOff(AVMutableCompositionTrack& track, CMTime time) {
    const CMTime end = CMTimeRangeGetEnd(track.timeRange());
    if (CMTIME_IS_NUMERIC(end) && end > CMTimeAdd(time, kRounding))
      track.removeTimeRange(CMTimeRangeFromTimeToTime(time, end));
  }

  void setStart(Parameters& first, bool fadesIn) const {
    if (!fadesIn) return first.setVolume(1, kCMTimeZero);
    const double firstSeam = CMTimeGetSeconds(seams_.front());
    const double seconds = firstSeam < kLongestFadeIn ? firstSeam : kLongestFadeIn;
    const CMTime end = CMTimeMakeWithSeconds(seconds, duration_.timescale);
    first.setVolumeRampFromStartVolume(0, 1, CMTimeRangeFromTimeToTime(kCMTimeZero, end));
  }

  const CMTime duration_;
  const CMTime pictureLength_;
  Piece picture_;
  Piece sound_;  // without a track when the source has no sound
  std::shared_ptr<AVMutableCompositionTrack> videoTrack_;
  std::array<std::shared_ptr<AVMutableCompositionTrack>, kAudioTracks> audioTracks_;
  std::vector<CMTime> seams_;
};

}  // namespace

CMTime ZFZaffoLoopingComposition::standardTrim() {
  return CMTimeMakeWithSeconds(0.05, kNanoseconds);
}

CMTime ZFZaffoLoopingComposition::standardTotalTrimAmount() {
  return CMTimeMakeWithSeconds(0.1, kNanoseconds);
}

bool ZFZaffoLoopingComposition::createAudioCrossFadeLoopingComposition(
    AVMutableComposition& composition, AVMutableAudioMix& audioMix, const AVAsset& asset) {
  if (asset.tracksWithMediaType(AVMediaTypeVideo).empty()) return false;
  LoopBuild build(composition, asset);
  videoLength_ = build.pictureLength();
  if (!build.layCopies()) return false;
  if (build.hasSound()) audioMix.setInputParameters(build.mixParameters(shouldFadeIn_));
  return true;
}

}  // namespace zaffo
