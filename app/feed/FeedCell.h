// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "figures/Statistics.h"

namespace zaffo::feed {

/// Where a clip is in its time, in seconds. A clip that is laid end to end is counted through in
/// rounds.
struct ClipPosition {
  double time = 0;    ///< since the clip, or this round of it, began
  double length = 0;  ///< of the clip, or of a round
  double start = 0;   ///< of the round, in what is played
};

/// One page of the feed as its controller sees it: its view, and the player it borrows from the
/// pool while needed. Abstract so that the controller can be tested by itself. Thread: main.
class FeedCell {
 public:
  virtual ~FeedCell() = default;

  [[nodiscard]] virtual std::shared_ptr<UIView> view() const = 0;

  /// Starts fetching the thumbnail, shown until the video is; once is enough.
  virtual void loadThumbnail() = 0;

  /// Borrows a player and loads the video, unless that is done or in progress.
  virtual void load() = 0;
  /// Gives the player back, or cancels the load.
  virtual void unload() = 0;
  /// Whether a load has ended, with a player or with an error.
  [[nodiscard]] virtual bool isSettled() const = 0;
  /// Called whenever a load has ended.
  virtual void setSettledHandler(std::function<void()> handler) = 0;
  /// Notices that the pool has dropped its player; load() then starts anew.
  virtual void checkPlayer() = 0;

  /// It is now the page in view: it loads if need be, plays, and fills in the record.
  virtual void becomeCurrent(std::shared_ptr<Swipe> swipe, float volume) = 0;
  /// It no longer is: it stops, and completes the record.
  virtual void resignCurrent() = 0;
  /// The feed has come to rest: a page that is not current goes back to its start, out of sight.
  virtual void scrollingEnded() = 0;

  /// A picture of the feed was put on screen at this host time.
  virtual void didPresent(int64_t hostNanoseconds) = 0;
  /// Brings the record's counts of frames up to date; what changes them otherwise is the end.
  virtual void updateRecord() = 0;
  /// Whether its video is on screen, or an error in its place.
  [[nodiscard]] virtual bool isShown() const = 0;

  virtual void setRate(float rate) = 0;
  /// The one that was set; 1 on a page that has just come into view.
  [[nodiscard]] virtual float rate() const = 0;
  virtual void togglePlaying() = 0;
  /// Held, it stands still whatever the rate, until it is let go.
  virtual void setHeld(bool held) = 0;
  /// Whether there is a video, it is not held, has a rate and is not at its end.
  [[nodiscard]] virtual bool isPlaying() const = 0;
  /// Empty while there is no video, or its length is unknown.
  [[nodiscard]] virtual std::optional<ClipPosition> position() const = 0;
  virtual void setVolume(float volume) = 0;
  /// Shows the exact frame at `time`. `completion` is called when it is ready, or at once when
  /// there is no player.
  virtual void seek(CMTime time, std::function<void()> completion) = 0;
  /// Whether a seek that takes long, or gives way to another, shows a frame near by first.
  [[nodiscard]] virtual bool showsFrameNearBy() const { return false; }
};

}  // namespace zaffo::feed
