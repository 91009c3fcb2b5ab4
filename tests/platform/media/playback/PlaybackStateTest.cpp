// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/PlaybackState.h"

#include <gtest/gtest.h>

#include <array>

namespace zaffo::media {
namespace {

using enum PlaybackState;

constexpr std::array kStates{Seeking, Ready, Running, Waiting, Ended, Failed, Closed};

TEST(PlaybackState, HasTheArrowsOfItsDrawingAndNoOthers) {
  struct Row {
    PlaybackState from;
    std::array<bool, kStates.size()> to;  ///< in the order of kStates
  };
  constexpr std::array kArrows{
      Row{Seeking, {true, true, false, false, false, true, true}},
      Row{Ready, {true, true, true, true, false, true, true}},
      Row{Running, {true, true, true, true, true, false, true}},
      Row{Waiting, {true, true, true, true, false, false, true}},
      Row{Ended, {true, false, false, false, true, true, true}},
      Row{Failed, {true, false, false, false, false, true, true}},
      Row{Closed, {false, false, false, false, false, false, true}},
  };
  for (const Row& row : kArrows) {
    for (std::size_t to = 0; to < kStates.size(); ++to) {
      EXPECT_EQ(mayFollow(row.from, kStates[to]), row.to[to])
          << static_cast<int>(row.from) << " to " << static_cast<int>(kStates[to]);
    }
  }
}

}  // namespace
}  // namespace zaffo::media
