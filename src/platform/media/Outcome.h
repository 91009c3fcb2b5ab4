// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zaffo::media {

/// What asking a stage of the engine for its next thing gave: a cursor for a sample, a decoder for
/// a frame, a track for a picture or for sound. Waiting and ending are outcomes, not errors.
enum class Outcome {
  Ready,    ///< done: it was given
  Working,  ///< not there yet, and nothing has to happen before: ask again at once
  Again,    ///< not now: something has to come first, which the stage's handler or owner will tell
  End,      ///< there is no more
  Error,    ///< see the stage's error()
};

}  // namespace zaffo::media
