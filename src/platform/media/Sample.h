// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/coremedia/CMTime.h"
#include "platform/foundation/NSError.h"
#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// One compressed sample of one track, by reference to what the demuxer read.
struct Sample {
  PacketPtr packet;  ///< its own pts and dts are the source's, in the source's time base
  /// On the time line of whoever gave the sample. Invalid where a file, mostly a damaged one, does
  /// not tell it: sound then follows the sample before it, and a picture is not shown.
  CMTime presentation;
  /// No later than the presentation of this and all later samples. Invalid where the file does not
  /// tell it. What follows from it is ReorderHorizon's to say.
  CMTime decode;
  CMTime duration;
  bool sync = false;        ///< decoding can start here
  bool decodeOnly = false;  ///< needed to decode others, not to be shown
  /// Does not continue what was read before it: what the decoder still holds is given out, then it
  /// starts anew. Set on the first sample of a composition's segment.
  bool isDiscontinuity = false;
  /// Sound: only what lies in [heardFrom, heardUntil) is heard, to the sample, on the time line of
  /// `presentation`; an invalid time is no bound. What codecs add at the ends lies outside.
  CMTime heardFrom;
  CMTime heardUntil;
};

}  // namespace zaffo::media
