// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSThread.h"

#include <gtest/gtest.h>

#include <thread>

namespace zaffo {
namespace {

TEST(NSThread, TheFirstThreadIsTheMainThread) {
  bool otherIsMain = true;
  std::thread([&] { otherIsMain = NSThread::isMainThread(); }).join();
  EXPECT_TRUE(NSThread::isMainThread());
  EXPECT_FALSE(otherIsMain);
}

TEST(NSThread, AnotherThreadMayAdoptTheRole) {
  bool otherIsMain = false;
  std::thread([&] {
    NSThread::adoptMainThread();
    otherIsMain = NSThread::isMainThread();
  }).join();
  EXPECT_TRUE(otherIsMain);
  EXPECT_FALSE(NSThread::isMainThread());
  bool laterIsMain = true;
  std::thread([&] { laterIsMain = NSThread::isMainThread(); }).join();
  EXPECT_FALSE(laterIsMain) << "a new thread does not inherit the role of an ended one";
  NSThread::adoptMainThread();
  EXPECT_TRUE(NSThread::isMainThread());
}

#ifndef NDEBUG
TEST(AssertMainThreadDeathTest, StopsTheProgramOnAnotherThreadInDebugBuilds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(std::thread([] { assertMainThread(); }).join(), "belongs on the main thread");
}
#endif

TEST(AssertMainThread, ReturnsOnTheMainThread) {
  assertMainThread();
  EXPECT_TRUE(NSThread::isMainThread());
}

}  // namespace
}  // namespace zaffo
