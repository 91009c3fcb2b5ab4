// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zaffo::media {

/// Where a playback stands.
///
///              frame found          rate > 0, sound at hand
///     Seeking ────────────▶ Ready ──────────────────────────▶ Running ◀──────┐
///        │                  │ │ ▲                              │ │ │        │ there is more to
///        │ there is none    │ │ ├─────────── rate 0 ───────────┘ │ │        │ show and to hear,
///        │                  │ │ └─────────── rate 0 ────────┐    │ │        │ or that was all
///        │                  │ │ rate > 0, frames let go of  │    │ │ dry    │
///        │                  │ └────────────────────────────▶ Waiting ───────┘
///        │                  │                                  │
///        │                  │ there is nothing but sound,      │ the end, of the item or
///        ▼                  ▼ and that cannot be decoded       ▼ of what can be decoded
///        └──────────────▶ Failed ◀── (likewise) ──────────── Ended
///
/// A seek leads to Seeking from anywhere, and a leap of the clock from Running; close() to Closed,
/// and from there nothing leads on. Dry: the source has nothing for now, and what it gave is over.
enum class PlaybackState {
  Seeking,  ///< looks for the frame of a position, or waits for the seek that supersedes this one
  Ready,    ///< stands still with the frame of its position on show; the sound may not be there yet
  Running,  ///< the timebase moves
  Waiting,  ///< stands still for the source or the decoder, and then goes on by itself
  Ended,    ///< came to a stop by itself
  Failed,   ///< cannot go on from here
  Closed,
};

/// Whether the drawing has an arrow from `from` to `to`, or lets it stay what it is.
[[nodiscard]] constexpr bool mayFollow(PlaybackState from, PlaybackState to) {
  using enum PlaybackState;
  if (from == to || from == Closed) return from == to;
  switch (to) {
    case Seeking:
    case Closed:
      return true;
    case Ready:
      return from == Seeking || from == Running || from == Waiting;
    case Running:
      return from == Ready || from == Waiting;
    case Waiting:
      return from == Ready || from == Running;
    case Ended:
      return from == Running;
    case Failed:
      return from != Running && from != Waiting;
  }
  return false;
}

}  // namespace zaffo::media
