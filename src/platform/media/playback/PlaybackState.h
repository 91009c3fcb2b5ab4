#pragma once

namespace zaffo::media {

/// Where a playback stands.
///
///              frame found          rate > 0, sound at hand
///     Seeking ────────────▶ Ready ──────────────────────────▶ Running
///        │                  │   ▲                              │   │
///        │ there is none    │   └─────────── rate 0 ───────────┘   │ the end, of the item or
///        │                  │ there is nothing but sound,          │ of what can be decoded
///        ▼                  ▼ and that cannot be decoded           ▼
///        └──────────────▶ Failed ◀── (likewise) ──────────────── Ended
///
/// A seek leads to Seeking from anywhere, close() to Closed, and from there nothing leads on.
enum class PlaybackState {
  Seeking,  ///< looks for the frame of a place; one that was superseded gives way to the next
  Ready,    ///< stands still with the frame of its position on show; the sound may be on its way
  Running,  ///< the timebase moves
  Ended,    ///< came to a stop by itself
  Failed,   ///< cannot go on from here
  Closed,
};

/// Whether the drawing has an arrow from one to the other. What is there already may stay.
[[nodiscard]] constexpr bool mayFollow(PlaybackState from, PlaybackState to) {
  using enum PlaybackState;
  if (from == Closed) return to == Closed;
  switch (to) {
    case Seeking:
    case Closed:
      return true;
    case Ready:
      return from == Seeking || from == Running;
    case Running:
      return from == Ready || from == Running;
    case Ended:
      return from == Running || from == Ended;
    case Failed:
      return from != Running;
  }
  return false;
}

}  // namespace zaffo::media
