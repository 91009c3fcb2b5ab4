// SPDX-License-Identifier: Apache-2.0
#include "platform/Thread.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <latch>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"

namespace zaffo {
namespace {

void startEveryKindOfThread() {
  std::latch ran(3);
  const auto block = [&ran] { ran.count_down(); };
  dispatch_queue_create("worker")->async(block);
  dispatch_queue_create_blocking("blocking")->async(block);
  const auto timer = dispatch_timer_after(1, dispatch_queue_create("timed"), block);
  ran.wait();
}

bool isBlockedHere(int signal) {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

TEST(Thread, OfTheLibraryTakesNoSignalThatTheApplicationBlockedForItself) {
  startEveryKindOfThread();
  sigset_t mine;
  sigset_t former;
  sigemptyset(&mine);
  sigaddset(&mine, SIGUSR1);
  // A signal that a thread does take ends the process.
  std::signal(SIGUSR1, SIG_DFL);
  pthread_sigmask(SIG_BLOCK, &mine, &former);
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
    const timespec now{};
    EXPECT_EQ(sigtimedwait(&mine, nullptr, &now), SIGUSR1);
  }
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

TEST(Thread, LeavesToTheApplicationsHandlersWhatAThreadBringsUponItself) {
  bool segmentationFault = true;
  bool termination = false;
  startThread("tested", [&] {
    segmentationFault = isBlockedHere(SIGSEGV);
    termination = isBlockedHere(SIGTERM);
  }).join();
  EXPECT_FALSE(segmentationFault);
  EXPECT_TRUE(termination);
}

TEST(Thread, LeavesTheSignalsOfWhoStartsOneAsTheyWere) {
  startThread("tested", [] {}).join();
  EXPECT_FALSE(isBlockedHere(SIGTERM));
}

TEST(Thread, ThatALibraryStartsHereIsNamedAndTakesNoSignals) {
  char name[16] = "", mine[16] = "", after[16] = "";
  bool termination = false;
  pthread_getname_np(pthread_self(), mine, sizeof mine);
  {
    const ForeignThreads theirs("theirs");
    std::thread([&] {
      pthread_getname_np(pthread_self(), name, sizeof name);
      termination = isBlockedHere(SIGTERM);
    }).join();
  }
  pthread_getname_np(pthread_self(), after, sizeof after);
  EXPECT_STREQ(name, "theirs");
  EXPECT_TRUE(termination);
  EXPECT_STREQ(after, mine);
  EXPECT_FALSE(isBlockedHere(SIGTERM));
}

TEST(Thread, HasAName) {
  char name[16] = "";
  startThread("a name that is too long", [&name] {
    pthread_getname_np(pthread_self(), name, sizeof name);
  }).join();
  EXPECT_STREQ(name, "a name that is ");
}

}  // namespace
}  // namespace zaffo
