// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "companion/AVPlayerItemLoader.h"

namespace zaffo {

/// One video of a feed; it is its own item loader. Implemented by the application. Thread: main.
class ZAFFO_EXPORT ZFVideo : public AVPlayerItemLoader {
 public:
  /// Identifies the video: two with the same id share a player.
  [[nodiscard]] virtual std::string videoId() const = 0;
  [[nodiscard]] virtual CMTime itemDuration() const = 0;
  [[nodiscard]] virtual bool canPause() const = 0;
  [[nodiscard]] virtual bool canPlay() const = 0;
  [[nodiscard]] virtual bool explicitContent() const = 0;

  /// Optional: called when playback has stopped, with the seconds played.
  virtual void handlePlaybackStoppedWithElapsedTime(double /*seconds*/) {}
  /// Optional: called when the video starts to play.
  virtual void reportNewPlayEvent() {}
};

}  // namespace zaffo
