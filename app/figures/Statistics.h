// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "figures/ProcessFigures.h"
#include "figures/TurnTimes.h"

namespace zaffo::feed {

/// The record of one arrival at a page, including the first. Times are host times (TimeSource,
/// nanoseconds). Filled in by the page while it is current.
struct Swipe {
  std::string video;
  int page = 1;       ///< counted from 1
  bool warm = false;  ///< answered at once by a player that already held the video
  int64_t requested = 0;
  std::optional<int64_t> completed;   ///< when the pool handed out the player
  std::optional<int64_t> firstFrame;  ///< when a picture of the video was put on screen
  uint64_t framesShown = 0;
  uint64_t framesDropped = 0;
  int64_t longestBlock = 0;  ///< the longest turn of the main loop, nanoseconds
  std::string error;         ///< what the page says in place of the video; empty when all is well
};

/// The figures of one run. Thread: main.
class Statistics {
 public:
  /// The process's figures are taken after this many swipes, once it has warmed up, and at the end.
  static constexpr std::size_t kWarmedUp = 50;

  /// Begins the record of an arrival, which completes the one before it.
  std::shared_ptr<Swipe> beginSwipe(std::string video, int page, int64_t now);

  /// Notes the times of a turn of the main loop.
  void noteTurn(const TurnTimes& turn);

  void setWarmedUpFigures(const ProcessFigures& figures, int players);
  void setFinalFigures(const ProcessFigures& figures, int players);

  [[nodiscard]] const std::vector<std::shared_ptr<Swipe>>& swipes() const { return swipes_; }

  /// The whole as JSON; the manual describes the fields.
  [[nodiscard]] std::string json() const;
  /// The whole as a table for a person.
  [[nodiscard]] std::string summary() const;

 private:
  struct Figures {
    ProcessFigures process;
    int players = 0;
  };

  std::vector<std::shared_ptr<Swipe>> swipes_;
  int64_t longestBlock_ = 0;
  // The largest of each in any one turn, nanoseconds.
  int64_t mostWorked_ = 0, mostAsleep_ = 0;
  std::optional<int64_t> mostQueued_;
  std::optional<Figures> warmedUp_;
  std::optional<Figures> final_;
};

}  // namespace zaffo::feed
