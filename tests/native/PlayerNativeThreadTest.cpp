// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include "native/NativeTest.h"

#ifndef NDEBUG  // the thread is looked at in debug builds only

namespace zaffo {
namespace {

class PlayerNativeThreadDeathTest : public NativeTest {
 protected:
  PlayerNativeThreadDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(PlayerNativeThreadDeathTest, LoadsOnTheMainThreadOnly) {
  EXPECT_DEATH(std::thread([this] { player->loadPlayerItem(waitingItem(), into(reports)); }).join(),
               "belongs on the main thread");
}

TEST_F(PlayerNativeThreadDeathTest, IsTornDownOnTheMainThreadOnly) {
  EXPECT_DEATH(std::thread([this] { player->teardownPlayerItem(); }).join(),
               "belongs on the main thread");
}

}  // namespace
}  // namespace zaffo

#endif
