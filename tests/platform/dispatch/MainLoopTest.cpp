// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/MainLoop.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

class MainLoopTest : public testing::Test {
 protected:
  ~MainLoopTest() override {
    while (MainLoop::runTurn() > 0) {
    }
  }

  static bool isReadable() {
    pollfd polled{MainLoop::fileDescriptor(), POLLIN, 0};
    return poll(&polled, 1, 0) == 1;
  }

  const DispatchQueuePtr& main_ = dispatch_get_main_queue();
};

TEST_F(MainLoopTest, ATurnRunsWhatIsQueuedAndCountsIt) {
  std::string order;
  main_->async([&] { order += 'a'; });
  main_->async([&] { order += 'b'; });
  EXPECT_EQ(order, "");
  EXPECT_EQ(MainLoop::runTurn(), 2);
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(MainLoop::runTurn(), 0);
}

TEST_F(MainLoopTest, ATurnLeavesWhatItsBlocksQueueToTheNext) {
  std::string order;
  main_->async([&] {
    order += 'a';
    main_->async([&] { order += 'b'; });
  });
  EXPECT_EQ(MainLoop::runTurn(), 1);
  EXPECT_EQ(order, "a");
  EXPECT_EQ(MainLoop::runTurn(), 1);
  EXPECT_EQ(order, "ab");
}

TEST_F(MainLoopTest, ATurnInsideABlockRunsTheBlocksBehindIt) {
  std::string order;
  main_->async([&] {
    order += "(";
    EXPECT_EQ(MainLoop::runTurn(), 2);
    order += ")";
    main_->async([&] { order += 'c'; });
  });
  main_->async([&] { order += 'a'; });
  main_->async([&] { order += 'b'; });
  EXPECT_EQ(MainLoop::runTurn(), 1);
  EXPECT_EQ(order, "(ab)");
  EXPECT_EQ(MainLoop::runTurn(), 1);
  EXPECT_EQ(order, "(ab)c");
}

TEST_F(MainLoopTest, TheDescriptorIsReadableExactlyWhileThereIsSomethingToRun) {
  EXPECT_FALSE(isReadable());
  bool readableInside = true;
  main_->async([&] { readableInside = isReadable(); });
  EXPECT_TRUE(isReadable());
  EXPECT_TRUE(isReadable()) << "polling changes nothing";
  MainLoop::runTurn();
  EXPECT_FALSE(readableInside) << "the block that runs is not waiting any more";
  EXPECT_FALSE(isReadable());
}

TEST_F(MainLoopTest, TheDescriptorStaysReadableForBlocksThatATurnLeaves) {
  main_->async([&] { main_->async([] {}); });
  MainLoop::runTurn();
  EXPECT_TRUE(isReadable());
  MainLoop::runTurn();
  EXPECT_FALSE(isReadable());
}

TEST_F(MainLoopTest, AWaitingTurnReturnsWithNothingAfterItsTimeout) {
  EXPECT_EQ(MainLoop::runTurn(1'000'000), 0);
  EXPECT_EQ(MainLoop::runTurn(0), 0);
}

TEST_F(MainLoopTest, AWaitingTurnRunsWhatComesInFromAnotherThread) {
  bool ran = false;
  std::thread other([&] { main_->async([&] { ran = true; }); });
  EXPECT_EQ(MainLoop::runTurn(kTenSeconds), 1);
  EXPECT_TRUE(ran);
  other.join();
}

TEST_F(MainLoopTest, RunEndsAfterThePresentBlock) {
  std::string order;
  main_->async([&] {
    order += 'a';
    MainLoop::quit();
  });
  main_->async([&] { order += 'b'; });
  MainLoop::run();
  EXPECT_EQ(order, "a");
  EXPECT_TRUE(isReadable()) << "the rest stays queued";
  EXPECT_EQ(MainLoop::runTurn(), 1);
  EXPECT_EQ(order, "ab");
}

TEST_F(MainLoopTest, QuitEndsAWaitingRunFromAnotherThread) {
  std::latch running(1);
  main_->async([&] { running.count_down(); });
  std::thread other([&] {
    running.wait();
    MainLoop::quit();
  });
  MainLoop::run();
  other.join();
  EXPECT_TRUE(running.try_wait());
}

TEST_F(MainLoopTest, QuitBeforeRunEndsTheNextRunOnly) {
  bool ran = false;
  main_->async([&] {
    ran = true;
    MainLoop::quit();
  });
  MainLoop::quit();
  MainLoop::run();
  EXPECT_FALSE(ran);
  MainLoop::run();
  EXPECT_TRUE(ran);
}

TEST_F(MainLoopTest, AWakeUpWithoutABlockDoesNotKeepTheDescriptorReadable) {
  MainLoop::quit();
  MainLoop::run();
  MainLoop::runTurn();
  EXPECT_FALSE(isReadable());
}

TEST_F(MainLoopTest, ASignalThatComesAfterItsBlockWasRunIsGoneAfterOneTurn) {
  // A thread that queued a block signals it without the lock, perhaps when the block has run.
  ASSERT_EQ(eventfd_write(MainQueue::shared().signalDescriptor(), 1), 0);
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(MainLoop::runTurn(), 0);
  EXPECT_FALSE(isReadable()) << "a loop that polls it would spin";
  main_->async([] {});
  EXPECT_TRUE(isReadable());
}

TEST_F(MainLoopTest, ATimerOnTheMainQueueMakesTheDescriptorReadable) {
  bool ran = false;
  const auto timer = dispatch_timer_after(1'000'000, main_, [&] { ran = true; });
  pollfd polled{MainLoop::fileDescriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&polled, 1, 10'000), 1);
  MainLoop::runTurn();
  EXPECT_TRUE(ran);
}

TEST_F(MainLoopTest, RunTakesTheMainThreadAlong) {
  bool mainThere = false, mainHere = true;
  std::thread loop([&] {
    main_->async([&] {
      mainThere = NSThread::isMainThread();
      MainLoop::quit();
    });
    MainLoop::run();
  });
  loop.join();
  mainHere = NSThread::isMainThread();
  NSThread::adoptMainThread();
  EXPECT_TRUE(mainThere);
  EXPECT_FALSE(mainHere);
  EXPECT_TRUE(NSThread::isMainThread());
}

TEST_F(MainLoopTest, LosesNoBlockOfManyThreads) {
  constexpr int kThreads = 4, kBlocks = 5000;
  int runs = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int block = 0; block < kBlocks; ++block) main_->async([&] { ++runs; });
    });
  }
  while (runs < kThreads * kBlocks) ASSERT_GT(MainLoop::runTurn(kTenSeconds), 0);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(runs, kThreads * kBlocks);
  EXPECT_FALSE(isReadable());
}

}  // namespace
}  // namespace zaffo
