// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// How a page plays the item in the player it has borrowed, whether a native or a fast one. Shares
/// the page's handle to the player; leaves the volume alone. Thread: main.
class PagePlayback {
 public:
  /// Called on the main thread, never inside create(). Either may release the playback.
  struct Events {
    /// Why the item cannot be played on. Neither is empty.
    std::function<void(std::string reason)> failed;
    /// The item's last picture has been shown for its time, and the player has stopped.
    std::function<void()> ended;
  };

  /// For the kind of player that `player` is, with the item that it holds: it must hold one.
  [[nodiscard]] static std::shared_ptr<PagePlayback> create(std::shared_ptr<Player> player,
                                                            Events events);
  virtual ~PagePlayback() = default;

  /// Plays at `rate` from now on, or once a rewind or seek in progress is done. 0 stops.
  virtual void setRate(float rate) = 0;
  /// Goes back to the start and goes on at the rate set by then, from the end too.
  virtual void rewind() = 0;
  /// Shows the frame at `time` and goes on at the rate set by then, from the end too. Calls `done`
  /// (may be empty) when the frame is there, or will not come.
  virtual void seek(CMTime time, std::function<void()> done) = 0;
  /// Whether a seek that takes long, or gives way to another, shows a frame near by first.
  [[nodiscard]] virtual bool showsFrameNearBy() const { return false; }

  /// Whether there is a picture to be shown. A fast player has none for a moment after a seek.
  [[nodiscard]] virtual bool hasPicture() const = 0;
  /// Call this when the window has put a picture on screen.
  virtual void didPresent() {}
};

}  // namespace zaffo::feed
