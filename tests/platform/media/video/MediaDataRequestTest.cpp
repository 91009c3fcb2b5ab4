// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/MediaDataRequest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "doubles/HeldQueue.h"
#include "doubles/ManualTime.h"

namespace zaffo::media {
namespace {

using Prospect = MediaDataRequest::Prospect;

constexpr int64_t kPatience = 100 * kNanosecondsPerMillisecond;

/// What a client does that is no call of its block.
void elsewhere(const std::function<void()>& act) {
  std::thread(act).join();
}

/// A supply whose renderer always has room, and a client on a queue that runs when told to.
class MediaDataSupplyTest : public testing::Test {
 protected:
  MediaDataSupplyTest() {
    dataRequest_->setAnsweredHandler([this] { ++answers_; });
  }

  void request(std::function<void()> block) { dataRequest_->request(queue_, std::move(block)); }
  /// The call that is owed is made, and what waits for the client runs.
  void callAndRun() {
    dataRequest_->call();
    queue_->runAll();
  }
  [[nodiscard]] Prospect prospect() const { return dataRequest_->prospect(run_, now_); }
  void beginRun() { dataRequest_->beginRun(++run_); }
  void bringSample() { dataRequest_->noteSample(now_); }

  const std::shared_ptr<MediaDataRequest> dataRequest_ = std::make_shared<MediaDataRequest>();
  const std::shared_ptr<HeldQueue> queue_ = std::make_shared<HeldQueue>();
  uint64_t run_ = 0;
  int64_t now_ = kNanosecondsPerSecond;
  int answers_ = 0;
};

TEST_F(MediaDataSupplyTest, ARequestOwesOneCallOnItsQueue) {
  int calls = 0;
  request([&calls] { ++calls; });
  EXPECT_TRUE(dataRequest_->owesCall());
  dataRequest_->call();
  dataRequest_->call();
  EXPECT_FALSE(dataRequest_->owesCall());
  EXPECT_EQ(calls, 0);
  queue_->runAll();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(answers_, 1);
}

TEST_F(MediaDataSupplyTest, SamplesAreComingUntilTheCallThatBringsTheLastOfThemIsOver) {
  Prospect amidTheCall{};
  request([&] {
    bringSample();
    amidTheCall = prospect();
  });
  EXPECT_EQ(prospect(), Prospect::Coming);
  dataRequest_->call();
  now_ += 10 * kPatience;
  EXPECT_EQ(prospect(), Prospect::Coming) << "however long its queue is busy";
  EXPECT_EQ(dataRequest_->quietAt(), std::nullopt);
  queue_->runAll();
  EXPECT_EQ(amidTheCall, Prospect::Coming);
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, AClientThatFindsNoRoomWillBringMore) {
  request([this] { dataRequest_->owe(); });
  callAndRun();
  EXPECT_TRUE(dataRequest_->owesCall());
  now_ += 10 * kPatience;
  EXPECT_EQ(prospect(), Prospect::Coming);
}

TEST_F(MediaDataSupplyTest, WhatIsExpectedIsComingUntilItWasAskedForAnew) {
  request([this] {
    bringSample();
    dataRequest_->expect();
  });
  callAndRun();
  now_ += 10 * kPatience;
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_EQ(dataRequest_->quietAt(), std::nullopt);
  EXPECT_FALSE(dataRequest_->owesCall());
  request([this] { bringSample(); });
  EXPECT_TRUE(dataRequest_->owesCall());
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, NothingIsExpectedOfARunThatIsLeft) {
  request([this] { dataRequest_->expect(); });
  callAndRun();
  elsewhere([this] { static_cast<void>(dataRequest_->stop()); });
  now_ += 10 * kPatience;
  EXPECT_EQ(prospect(), Prospect::Quiet);
  request([this] {
    beginRun();
    dataRequest_->expect();
  });
  callAndRun();
  EXPECT_TRUE(dataRequest_->owesCall()) << "by the new run";
  static_cast<void>(dataRequest_->stop());
  EXPECT_EQ(prospect(), Prospect::Quiet) << "it did not expect anything";
}

TEST_F(MediaDataSupplyTest, OnlyACallCanExpectMore) {
  request([this] { bringSample(); });
  callAndRun();
  dataRequest_->expect();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, WhoeverStopsInsideTheCallHasNoMore) {
  request([this] {
    bringSample();
    static_cast<void>(dataRequest_->stop());
  });
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Ended);
  EXPECT_FALSE(dataRequest_->isLeft(run_));
}

TEST_F(MediaDataSupplyTest, WhoeverStopsBeforeTheCallSaysNothingOfWhatThereIs) {
  request([] {});
  bringSample();
  static_cast<void>(dataRequest_->stop());
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_TRUE(dataRequest_->isLeft(run_));
  now_ += kPatience;
  EXPECT_EQ(prospect(), Prospect::Quiet);
}

TEST_F(MediaDataSupplyTest, WhoeverStopsOnTheClientsQueueButInNoCallSaysNothingEither) {
  queue_->async([this] { static_cast<void>(dataRequest_->stop()); });
  request([] { ADD_FAILURE() << "called after the stop"; });
  dataRequest_->call();
  bringSample();
  queue_->runAll();
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_TRUE(dataRequest_->isLeft(run_));
}

TEST_F(MediaDataSupplyTest, WhoeverStopsWhileACallIsAtWorkSaysNothingThoughTheCallReturns) {
  request([this] {
    elsewhere([this] { static_cast<void>(dataRequest_->stop()); });
    bringSample();
  });
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_TRUE(dataRequest_->isLeft(run_));
}

TEST_F(MediaDataSupplyTest, ASecondStopChangesNothing) {
  request([this] { static_cast<void>(dataRequest_->stop()); });
  callAndRun();
  static_cast<void>(dataRequest_->stop());
  EXPECT_EQ(prospect(), Prospect::Ended);
  EXPECT_FALSE(dataRequest_->isLeft(run_));
}

TEST_F(MediaDataSupplyTest, ARunThatWasLeftIsTakenUpByTheNextRequest) {
  request([] {});
  static_cast<void>(dataRequest_->stop());
  request([] {});
  EXPECT_FALSE(dataRequest_->isLeft(run_));
  now_ += kPatience;
  EXPECT_EQ(prospect(), Prospect::Coming);
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, ANewRequestAwaitsItsOwnClientWhateverTheFormerOneStillDoes) {
  request([this] { request([] {}); });
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Coming);
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, ACallOfAFormerClientThatReturnsLateEndsNothing) {
  request([] {});
  dataRequest_->call();
  const auto other = std::make_shared<HeldQueue>();
  dataRequest_->request(other, [] {});
  dataRequest_->call();
  queue_->runAll();
  EXPECT_EQ(prospect(), Prospect::Coming);
  other->runAll();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, ANewRunExpectsItsOwnSamples) {
  request([] {});
  callAndRun();
  ASSERT_EQ(prospect(), Prospect::Ended);
  beginRun();
  EXPECT_TRUE(dataRequest_->owesCall()) << "there is room now";
  EXPECT_EQ(prospect(), Prospect::Coming);
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, ACallFromBeforeTheNewRunSaysNothingOfIt) {
  request([this] { elsewhere([this] { beginRun(); }); });
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Coming);

  request([this] {
    elsewhere([this] { beginRun(); });
    bringSample();
    static_cast<void>(dataRequest_->stop());
  });
  callAndRun();
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_FALSE(dataRequest_->isLeft(run_)) << "it was the other one that was";
}

TEST_F(MediaDataSupplyTest, ACallThatBeginsInTheNewRunIsOneOfIt) {
  request([] {});
  dataRequest_->call();
  beginRun();
  dataRequest_->call();
  queue_->runAll();
  EXPECT_EQ(prospect(), Prospect::Ended);
}

TEST_F(MediaDataSupplyTest, OfAnyRunButThePresentOneNothingIsKnown) {
  request([] {});
  callAndRun();
  EXPECT_EQ(dataRequest_->prospect(run_ + 1, now_), Prospect::Coming) << "it is about to begin";
  beginRun();
  static_cast<void>(dataRequest_->stop());
  beginRun();
  EXPECT_FALSE(dataRequest_->isLeft(run_));
  EXPECT_TRUE(dataRequest_->isLeft(run_ - 1));
  EXPECT_EQ(dataRequest_->prospect(run_ - 1, now_ + kPatience), Prospect::Coming);
}

TEST_F(MediaDataSupplyTest, OneThatIsNeverCalledIsQuietAfterAWhileAndNeverAtItsEnd) {
  bringSample();
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_EQ(dataRequest_->quietAt(), now_ + kPatience);
  now_ += kPatience - 1;
  EXPECT_EQ(prospect(), Prospect::Coming);
  ++now_;
  EXPECT_EQ(prospect(), Prospect::Quiet);
  bringSample();
  EXPECT_EQ(prospect(), Prospect::Coming);
  EXPECT_FALSE(dataRequest_->isLeft(run_));
}

TEST_F(MediaDataSupplyTest, ASampleAfterTheEndIsFollowedByOthersForAWhile) {
  request([] {});
  callAndRun();
  ASSERT_EQ(prospect(), Prospect::Ended);
  bringSample();
  EXPECT_EQ(prospect(), Prospect::Coming);
  now_ += kPatience;
  EXPECT_EQ(prospect(), Prospect::Quiet);
}

TEST_F(MediaDataSupplyTest, WhatACallHoldsIsGivenBackByAStop) {
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> gone = token;
  request([token = std::move(token)] { ++*token; });
  auto held = dataRequest_->stop();
  EXPECT_FALSE(gone.expired());
  held.reset();
  EXPECT_TRUE(gone.expired());
}

/// The renderer's side and two clients that flush, ask, stop and bring samples as they come.
TEST(MediaDataSupplyStress, NeitherLosesACallNorEndsWhileOneIsOwed) {
  constexpr int kRounds = 60;
  const ManualTime time;
  const auto dataRequest = std::make_shared<MediaDataRequest>();
  dataRequest->setAnsweredHandler([] {});
  const auto queue = dispatch_queue_create("test.client");
  std::atomic<bool> isOver{false};
  std::atomic<uint64_t> run{0};
  std::thread renderer([&] {
    while (!isOver) {
      dataRequest->call();
      static_cast<void>(dataRequest->prospect(run, TimeSource::now()));
      static_cast<void>(dataRequest->quietAt());
      static_cast<void>(dataRequest->isLeft(run));
      std::this_thread::yield();
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    dataRequest->beginRun(++run);
    std::atomic<int> calls{0};
    const bool stops = round % 3 == 0;
    dataRequest->request(queue, [&, stops] {
      dataRequest->noteSample(TimeSource::now());
      if (++calls < 3) return dataRequest->owe();
      if (stops) static_cast<void>(dataRequest->stop());
    });
    while (round % 4 != 0 && dataRequest->prospect(run, TimeSource::now()) != Prospect::Ended) {
      std::this_thread::yield();
    }
    if (round % 4 != 0) {
      EXPECT_EQ(calls, 3);
      EXPECT_FALSE(dataRequest->isLeft(run));
    }
    static_cast<void>(dataRequest->stop());
    dispatch_wait_until_idle();
  }
  isOver = true;
  renderer.join();
}

}  // namespace
}  // namespace zaffo::media
