// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/Confinement.h"

#include <gtest/gtest.h>

#include "doubles/HeldQueue.h"

namespace zaffo {
namespace {

TEST(Confinement, HoldsInABlockOfTheQueue) {
  HeldQueue queue;
  bool ran = false;
  queue.async([&] {
    assertCurrent(queue);
    ran = true;
  });
  queue.runAll();
  EXPECT_TRUE(ran);
}

TEST(ConfinementDeathTest, EndsTheProgramElsewhereInDebugBuilds) {
  const HeldQueue queue;
  EXPECT_DEBUG_DEATH(assertCurrent(queue), "held");
}

}  // namespace
}  // namespace zaffo
