// SPDX-License-Identifier: Apache-2.0
#include "figures/TurnTimes.h"

#include <gtest/gtest.h>
#include <poll.h>

namespace zaffo::feed {
namespace {

TEST(TurnClock, WorkIsTheThreadsOwnProcessorTime) {
  TurnClock clock;
  clock.begin();
  TurnTimes turn;
  do {
    turn = clock.end();
  } while (turn.worked < 2'000'000);
  EXPECT_GE(turn.wall, turn.worked);
  EXPECT_LT(turn.asleep(), turn.wall);
}

TEST(TurnClock, WaitingForSomethingElseIsSleep) {
  TurnClock clock;
  clock.begin();
  ASSERT_EQ(poll(nullptr, 0, 20), 0);  // what is measured, not waited for
  const TurnTimes turn = clock.end();
  EXPECT_GE(turn.wall, 20'000'000);
  EXPECT_LT(turn.worked, 10'000'000);
  if (turn.queued) {
    EXPECT_GT(turn.asleep(), 5'000'000);
  }
}

}  // namespace
}  // namespace zaffo::feed
