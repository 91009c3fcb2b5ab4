// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "overlay/Overlay.h"

namespace zaffo::feed {

/// What the page about the pool tells besides the players.
struct PoolFigures {
  std::string players;                          ///< PlayerManager::debugDescription()
  long most = 0;                                ///< players that the pool may hold
  uint64_t framesShown = 0, framesDropped = 0;  ///< of the video in view
  RecentTimes decoding;                         ///< of a frame, by all players
  RecentTimes drawing;                          ///< of a picture, of whatever
  double picturesPerSecond = 0;                 ///< drawn
  double longestTurn = 0;                       ///< of the main thread, milliseconds
  double memory = 0;                            ///< MiB
  int threads = 0;
};

[[nodiscard]] Overlay::Rows poolRows(const PoolFigures& figures);

}  // namespace zaffo::feed
