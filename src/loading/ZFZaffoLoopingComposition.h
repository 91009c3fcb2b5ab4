// SPDX-License-Identifier: Apache-2.0
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
/// There are 26 to 51 copies, about 162.5 s of them as far as the clip's length allows. A video
/// without sound gets no sound tracks.
///
/// D is the length of the picture or of the sound, whichever is longer. A copy of either is cut off
/// where its track ends. So where the sound outlasts the picture, the seams lie where the picture
/// ends, less than D - 0.1 s apart; the sound fades out there as at any seam, and whatever would
/// still be left when the next copy comes on its track, or 0.05 s after the last picture, is cut
/// off. Sound that ends before the picture leaves the rest of each copy silent, and the whole copy
/// when it ends before 0.05 s. Thread: one at a time.
class ZAFFO_EXPORT ZFZaffoLoopingComposition {
 public:
  /// 0.05 s: how much is cut off the start of every copy, and how long a cross-fade lasts.
  [[nodiscard]] static CMTime standardTrim();
  /// 0.1 s: how much is cut off a copy of the picture in all.
  [[nodiscard]] static CMTime standardTotalTrimAmount();

  /// Whether the sound of the first copy rises from silence, over its whole length but for at most
  /// 2 s. Initially true.
  [[nodiscard]] bool shouldFadeIn() const { return shouldFadeIn_; }
  void setShouldFadeIn(bool fadesIn) { shouldFadeIn_ = fadesIn; }

  /// The clip's duration less 0.1 s. That is the time from one seam to the next, unless the sound
  /// outlasts the picture by more than the 0.05 s cut off at its end: the seams are then closer
  /// together, by the duration of the composition's video track divided by the number of copies.
  /// Invalid before a build.
  [[nodiscard]] CMTime videoLength() const { return videoLength_; }
  void setVideoLength(CMTime length) { videoLength_ = length; }

  /// Fills a composition and a mix, both still empty, from the first video and sound tracks of
  /// `asset`, whose "tracks" and "duration" must be loaded. False, with the mix left alone, when
  /// `asset` has no video track (the composition is left alone too) or the composition refuses a
  /// range, as it does for a clip of 0.1 s or less; what had been inserted by then stays in it. The
  /// composition's own reasons are not passed on.
  [[nodiscard]] bool createAudioCrossFadeLoopingComposition(AVMutableComposition& composition,
                                                            AVMutableAudioMix& audioMix,
                                                            const AVAsset& asset);

 private:
  bool shouldFadeIn_ = true;
  CMTime videoLength_ = kCMTimeInvalid;
};

}  // namespace zaffo
