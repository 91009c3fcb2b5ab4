// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <latch>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "doubles/Sanitizers.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/dispatch/OutsideWait.h"

namespace zaffo {
namespace {

class ProcessExitDeathTest : public testing::Test {
 protected:
  // Each child is a new process: its threads and its exit are its own.
  ProcessExitDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// What a program keeps in a static object and uses from blocks.
std::map<int, std::string>& staticTable() {
  static std::map<int, std::string> table = {{1, "a text too long for the small buffer of it"}};
  return table;
}

/// Queues that never come to rest, on workers, blocking threads and timers.
void keepEverythingBusy() {
  static std::vector<DispatchQueuePtr> queues;
  static std::vector<std::function<void()>> hops(8);
  for (size_t i = 0; i < hops.size(); ++i) {
    queues.push_back(i % 2 ? dispatch_queue_create("busy")
                           : dispatch_queue_create_blocking("busy"));
    hops[i] = [queue = queues.back(), i] {
      if (staticTable().at(1).size() < 10) std::abort();
      queue->async(hops[i]);
    };
    queues.back()->async(hops[i]);
    dispatch_timer_every(100'000, queues.back(), [] { (void)staticTable().at(1).size(); }).reset();
  }
}

TEST_F(ProcessExitDeathTest, IsCleanWhileEveryQueueIsBusy) {
  EXPECT_EXIT(
      {
        (void)staticTable();
        keepEverythingBusy();
        for (int i = 0; i < 20; ++i) MainLoop::runTurn(1'000'000);
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^$");
}

TEST_F(ProcessExitDeathTest, IsCleanFromABlockOfAWorker) {
  EXPECT_EXIT(
      {
        dispatch_queue_create("exiting")->async([] { std::exit(7); });
        MainLoop::run();
      },
      testing::ExitedWithCode(7), "^$");
}

TEST_F(ProcessExitDeathTest, IsNotHeldUpByABlockThatWaitsForEver) {
  EXPECT_EXIT(
      {
        static std::latch started(1);
        static auto* const never = new std::latch(1);
        dispatch_queue_create_blocking("stuck")->async([] {
          started.count_down();
          never->wait();
        });
        started.wait();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^$");
}

TEST_F(ProcessExitDeathTest, IsNotHeldUpByWorkersThatWaitForTheOutsideOrHaveDoneSo) {
  EXPECT_EXIT(
      {
        static std::latch started(2);
        static auto* const never = new std::latch(1);
        dispatch_queue_create("stuck")->async([] {
          const OutsideWait wait;
          started.count_down();
          never->wait();
        });
        dispatch_queue_create("over")->async([] {
          { const OutsideWait wait; }
          started.count_down();
        });
        started.wait();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^$");
}

/// Uses the queues when everything else is gone.
struct LateUser {
  DispatchQueuePtr queue = dispatch_queue_create("late");
  ~LateUser() {
    queue->async([] { std::abort(); });
    dispatch_timer_after(0, queue, [] { std::abort(); })->cancel();
    dispatch_get_main_queue()->async([] { std::abort(); });
    dispatch_wait_until_idle();
  }
};

TEST_F(ProcessExitDeathTest, LetsStaticDestructorsUseTheQueuesButStartsNoBlock) {
  EXPECT_EXIT(
      {
        // Made before the queues' own static parts, so destroyed after them.
        static std::unique_ptr<LateUser> late;
        late = std::make_unique<LateUser>();
        dispatch_wait_until_idle();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^$");
}

/// How long a forked child takes to exit, as its parent sees it.
std::chrono::nanoseconds timeOfChildsExit() {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) std::exit(0);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  return std::chrono::steady_clock::now() - start;
}

TEST(ProcessExit, OfAForkedChildDoesNotWaitForThreadsThatItDoesNotHave) {
  if (test::kHasShadowMemory) GTEST_SKIP() << "a sanitizer looks through the child's memory first";
  std::latch ran(3);
  const auto block = [&ran] { ran.count_down(); };
  dispatch_queue_create("worker")->async(block);
  dispatch_queue_create_blocking("blocking")->async(block);
  const auto timer = dispatch_timer_after(1, dispatch_queue_create("timed"), block);
  ran.wait();
  // Each of the three kinds of threads is waited for half a second where it is missed.
  EXPECT_LT(timeOfChildsExit(), std::chrono::milliseconds(400));
}

}  // namespace
}  // namespace zaffo
