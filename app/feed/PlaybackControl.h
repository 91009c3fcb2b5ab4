// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "feed/FeedController.h"

namespace zaffo::feed {

/// What a person does to the video of the page in view: pauses, seeks, scrubs, sets the volume.
/// Thread: main.
class PlaybackControl : public std::enable_shared_from_this<PlaybackControl> {
  struct Private {};

 public:
  PlaybackControl(Private, std::shared_ptr<FeedController> controller);
  [[nodiscard]] static std::shared_ptr<PlaybackControl> create(
      std::shared_ptr<FeedController> controller);

  void togglePlaying();
  /// Whether a person has stopped it; a page that is turned to plays.
  [[nodiscard]] bool isPaused() const;
  /// Whether there is a video, and its pictures follow each other.
  [[nodiscard]] bool isPlaying() const;
  /// While nobody can see the window nothing plays.
  void setVisible(bool visible);

  /// Where the video is, or is about to be by a seek; empty while that is unknown.
  [[nodiscard]] std::optional<ClipPosition> position() const;
  [[nodiscard]] bool isSeeking() const { return isSeeking_; }
  /// Seconds on, or back, but not beyond the ends of the clip.
  void seekBy(double seconds);
  /// Holds the video still and shows the picture at `fraction` of the clip; of a quick row of them
  /// those that there is time for. One that takes long gives way to the next where the player has
  /// shown a picture near by.
  void scrub(double fraction);
  /// Goes on as before the scrub.
  void endScrub();
  [[nodiscard]] bool isScrubbing() const { return isScrubbing_; }
  /// Another page has come into view.
  void pageChanged();

  /// 0 to 1, in steps of a hundredth.
  void setVolume(double volume);
  /// Percent louder, or quieter; brings silenced sound back.
  void changeVolume(int percent);
  void toggleMute();
  [[nodiscard]] int volumePercent() const { return percent_; }
  [[nodiscard]] bool isMuted() const { return isMuted_; }

 private:
  void seekTo(double time);
  void seekNext();
  void leaveSeekIfLong();
  void seekEnded();
  void applyVolume();
  void hold();

  const std::shared_ptr<FeedController> controller_;
  int percent_ = 100;
  bool isMuted_ = false;
  bool isVisible_ = true;
  bool isScrubbing_ = false;
  bool isSeeking_ = false;
  int64_t seekBegan_ = 0;               // host time
  uint64_t seekNumber_ = 0;             // of the last one
  DispatchTimerPtr leaveTimer_;         // leaves the one in progress for the one that is due
  bool isSeekDue_ = false;              // to target_, after the one in progress
  std::optional<ClipPosition> target_;  // of a seek that is in progress or due
  uint64_t page_ = 0;                   // counts them, so that an answer for another one is known
};

}  // namespace zaffo::feed
