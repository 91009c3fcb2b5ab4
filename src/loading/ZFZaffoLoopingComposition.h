#pragma once

#include "platform/avfoundation/AVAudioMix.h"
#include "platform/avfoundation/AVComposition.h"

namespace zaffo {

/// Lays one short clip end to end, many times over, so that it plays as if it had no end:
///
///     source            |----------------------- D -----------------------|
///     picture                |== 0.05 s to D - 0.05 s ==|
///     sound                  |== 0.05 s to D ================|
///
///     video    |== copy 0 ==|== copy 1 ==|== copy 2 ==| …
///     track A  |== copy 0 ====|          |== copy 2 ====| …
///     track B               |== copy 1 ====|            | …
///                           ^ seam: over 0.05 s one track fades out, the other in
///
/// There are 26 to 51 copies: about 162.5 s of them, whatever a clip's length allows. A video
/// without sound gets no sound tracks. Thread: one at a time.
class ZAFFO_EXPORT ZFZaffoLoopingComposition {
 public:
  /// 0.05 s: what every copy is without at its head, and how long a cross-fade lasts.
  [[nodiscard]] static CMTime standardTrim();
  /// 0.1 s: what a copy of the picture is without altogether.
  [[nodiscard]] static CMTime standardTotalTrimAmount();

  /// Whether the sound of the first copy rises from silence, over its whole length but 2 s at most.
  /// True at first.
  [[nodiscard]] bool shouldFadeIn() const { return shouldFadeIn_; }
  void setShouldFadeIn(bool fadesIn) { shouldFadeIn_ = fadesIn; }

  /// The time from one seam to the next: the clip's duration less 0.1 s. Invalid before a build.
  [[nodiscard]] CMTime videoLength() const { return videoLength_; }
  void setVideoLength(CMTime length) { videoLength_ = length; }

  /// Fills a composition and a mix, both empty so far, from the first picture and sound tracks of
  /// `asset`, whose "tracks" and "duration" must be loaded. False, with the mix left alone, when
  /// `asset` has no picture (the composition is left alone too) or the composition refuses a range,
  /// as it does when the clip is not longer than 0.1 s; what was inserted before stays in it.
  /// The composition's own reasons are not told.
  [[nodiscard]] bool createAudioCrossFadeLoopingComposition(AVMutableComposition& composition,
                                                            AVMutableAudioMix& audioMix,
                                                            const AVAsset& asset);

 private:
  bool shouldFadeIn_ = true;
  CMTime videoLength_ = kCMTimeInvalid;
};

}  // namespace zaffo
