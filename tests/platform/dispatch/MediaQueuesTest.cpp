// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/MediaQueues.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <utility>
#include <vector>

#include "doubles/BusyPool.h"
#include "platform/dispatch/Semaphore.h"
#include "platform/dispatch/WorkerPool.h"

namespace zaffo {
namespace {

/// Picture queues whose blocks do not end until they are released.
class MediaQueuesTest : public testing::Test {
 protected:
  ~MediaQueuesTest() override {
    release();
    dispatch_wait_until_idle();
  }

  /// A step that takes as long as the test wants.
  void occupy(PictureLoad load) {
    queues_.push_back(makePictureQueue("occupied"));
    setPictureLoad(*queues_.back(), load);
    queues_.back()->async([this] {
      started_.release();
      released_.wait();
    });
  }
  void waitForSteps(unsigned count) {
    for (unsigned i = 0; i < count; ++i) started_.acquire();
  }
  void release() {
    if (!std::exchange(isReleased_, true)) released_.count_down();
  }
  /// Waits for a block of `queue`: forever if it never has its turn.
  static void expectTurn(const DispatchQueuePtr& queue) {
    std::latch ran(1);
    queue->async([&] { ran.count_down(); });
    ran.wait();
  }

  const unsigned pictures_ = WorkerPool::workerCount() - 1;
  Semaphore started_;
  std::latch released_{1};
  bool isReleased_ = false;
  std::vector<std::shared_ptr<SerialQueue>> queues_;
};

TEST_F(MediaQueuesTest, HoweverManyDecodePicturesOthersHaveTheirTurn) {
  for (unsigned i = 0; i < 3 * pictures_; ++i) occupy(PictureLoad::Light);
  for (unsigned i = 0; i < 3 * pictures_; ++i) occupy(PictureLoad::Heavy);
  waitForSteps(pictures_);
  expectTurn(dispatch_queue_create("serial"));
  expectTurn(makeSoundQueue("sound"));
  expectTurn(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT));
}

TEST_F(MediaQueuesTest, HoweverManyHeavyStepsThereAreLightOnesHaveTheirTurn) {
  if (pictures_ == 1) GTEST_SKIP() << "one core";
  for (unsigned i = 0; i < 3 * pictures_; ++i) occupy(PictureLoad::Heavy);
  waitForSteps(pictures_ - 1);
  expectTurn(makePictureQueue("light"));
}

TEST_F(MediaQueuesTest, AQueueThatGetsHeavyLeavesItsPlaceToLightOnes) {
  if (pictures_ == 1) GTEST_SKIP() << "one core";
  for (unsigned i = 0; i + 1 < pictures_; ++i) occupy(PictureLoad::Heavy);
  waitForSteps(pictures_ - 1);
  // Its second block waits for a heavy one to be over.
  const auto queue = makePictureQueue("gets heavy");
  std::atomic<bool> ranAgain{false};
  queue->async([&] { setPictureLoad(*queue, PictureLoad::Heavy); });
  queue->async([&] { ranAgain = true; });
  expectTurn(makePictureQueue("light"));
  expectTurn(makePictureQueue("light"));
  EXPECT_FALSE(ranAgain);
  release();
  dispatch_wait_until_idle();
  EXPECT_TRUE(ranAgain);
}

TEST_F(MediaQueuesTest, SoundStartsBeforeAllElsePicturesAfter) {
  std::mutex orderMutex;
  std::vector<int> order;
  const auto noting = [&](int rank) {
    return [&, rank] {
      const std::lock_guard lock(orderMutex);
      order.push_back(rank);
    };
  };
  {
    BusyPool busy;
    for (int i = 0; i < 50; ++i) {
      makePictureQueue("picture")->async(noting(2));
      dispatch_queue_create("serial")->async(noting(1));
      makeSoundQueue("sound")->async(noting(0));
    }
    busy.release();
  }
  // Workers that took their blocks in order may still note them a place apart: look at the middles.
  ASSERT_EQ(order.size(), 150u);
  EXPECT_EQ(order[25], 0);
  EXPECT_EQ(order[75], 1);
  EXPECT_EQ(order[125], 2);
}

TEST(PictureLoad, PicturesAreHeavyAbove1080p) {
  EXPECT_EQ(pictureLoad(0), PictureLoad::Light);
  EXPECT_EQ(pictureLoad(1920 * 1080), PictureLoad::Light);
  EXPECT_EQ(pictureLoad(2560 * 1440), PictureLoad::Heavy);
}

}  // namespace
}  // namespace zaffo
