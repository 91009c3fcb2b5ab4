// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/TimeObserver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <random>
#include <thread>

#include "doubles/ManualTime.h"
#include "doubles/TestSeed.h"

namespace zaffo {
namespace {

constexpr int64_t kTenth = kNanosecondsPerSecond / 10;

class TimeObserverTest : public testing::Test {
 protected:
  std::shared_ptr<BoundaryTimeObserver> observeBoundaries(std::vector<CMTime> times) {
    auto observer = std::make_shared<BoundaryTimeObserver>(
        std::move(times), dispatch_get_main_queue(), [this] { ++boundaries_; });
    observer->follow(timebase_);
    return observer;
  }

  std::shared_ptr<PeriodicTimeObserver> observeEvery(CMTime interval) {
    auto observer = std::make_shared<PeriodicTimeObserver>(
        interval, dispatch_get_main_queue(),
        [this](CMTime time) { told_.push_back(CMTimeGetSeconds(time)); });
    observer->follow(timebase_);
    time_.settle();
    told_.clear();
    return observer;
  }

  ManualTime time_;
  std::shared_ptr<CMTimebase> timebase_ = CMTimebase::create(CMClockGetHostTimeClock());
  int boundaries_ = 0;
  std::vector<double> told_;
};

TEST_F(TimeObserverTest, ABoundaryIsToldWhenPlaybackPassesIt) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10)});
  timebase_->setRate(1);
  time_.advance(4 * kTenth);
  EXPECT_EQ(boundaries_, 0);
  time_.advance(2 * kTenth);
  EXPECT_EQ(boundaries_, 1);
  time_.advance(10 * kTenth);
  EXPECT_EQ(boundaries_, 1);
}

TEST_F(TimeObserverTest, EveryBoundaryIsToldInTurnWhateverTheirOrder) {
  const auto observer =
      observeBoundaries({CMTimeMake(3, 10), CMTimeMake(1, 10), kCMTimeInvalid, CMTimeMake(2, 10)});
  timebase_->setRate(1);
  for (int i = 1; i <= 3; ++i) {
    time_.advance(kTenth);
    EXPECT_EQ(boundaries_, i);
  }
}

TEST_F(TimeObserverTest, ABoundaryIsNotToldWhileTimeStandsStill) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10)});
  time_.advance(20 * kTenth);
  EXPECT_EQ(boundaries_, 0);
}

TEST_F(TimeObserverTest, ABoundaryJumpedOverIsNotTold) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10), CMTimeMake(15, 10)});
  timebase_->setTime(CMTimeMake(1, 1));
  timebase_->setRate(1);
  time_.advance(4 * kTenth);
  EXPECT_EQ(boundaries_, 0);
  time_.advance(2 * kTenth);
  EXPECT_EQ(boundaries_, 1);
}

TEST_F(TimeObserverTest, ABoundaryIsToldAgainAfterASeekBack) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10)});
  timebase_->setRate(1);
  time_.advance(10 * kTenth);
  timebase_->setRate(0);
  timebase_->setTime(kCMTimeZero);
  timebase_->setRate(1);
  time_.advance(10 * kTenth);
  EXPECT_EQ(boundaries_, 2);
}

TEST_F(TimeObserverTest, ABoundaryReachedAsPlaybackStopsIsTold) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10)});
  timebase_->setRateAndAnchorTime(1, CMTimeMake(6, 10), TimeSource::now());
  timebase_->setRate(0);
  timebase_->setTime(kCMTimeZero);
  timebase_->setRate(1);
  time_.advance(5 * kTenth);
  timebase_->setRate(0);
  time_.settle();
  EXPECT_EQ(boundaries_, 1);
}

TEST_F(TimeObserverTest, TheBoundaryThatPlayingStartsAtIsToldThoughTimeHasMovedOnMeanwhile) {
  const auto observer = observeBoundaries({kCMTimeZero, CMTimeMake(5, 10)});
  timebase_->setRateAndAnchorTime(1, kCMTimeZero, TimeSource::now() - 1000);
  time_.settle();
  EXPECT_EQ(boundaries_, 1);
  time_.advance(10 * kTenth);
  EXPECT_EQ(boundaries_, 2);
  timebase_->setRate(0);
  timebase_->setTime(CMTimeMake(5, 10));
  timebase_->setRateAndAnchorTime(1, CMTimeMake(5, 10), TimeSource::now() - 1000);
  time_.settle();
  EXPECT_EQ(boundaries_, 3);
}

TEST_F(TimeObserverTest, TheBoundaryThatPlayingStartsAtIsToldWhenTheStartIsHeard) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10), CMTimeMake(7, 10)});
  timebase_->setTime(CMTimeMake(5, 10));
  timebase_->setRateAndAnchorTime(1, CMTimeMake(5, 10), TimeSource::now() + kTenth);
  time_.advance(kTenth - 1);
  EXPECT_EQ(boundaries_, 0);
  time_.advance(1);
  EXPECT_EQ(boundaries_, 1);
  time_.advance(2 * kTenth);
  EXPECT_EQ(boundaries_, 2);
}

TEST_F(TimeObserverTest, WhoBeginsToObserveBeforeTheStartIsHeardIsToldOfIt) {
  timebase_->setTime(CMTimeMake(5, 10));
  timebase_->setRateAndAnchorTime(1, CMTimeMake(5, 10), TimeSource::now() + kTenth);
  const auto observer = observeBoundaries({CMTimeMake(4, 10), CMTimeMake(5, 10)});
  time_.advance(2 * kTenth);
  EXPECT_EQ(boundaries_, 1);
}

TEST_F(TimeObserverTest, WhoBeginsToObserveWhilePlayingIsToldOfWhatComesOnly) {
  timebase_->setRate(1);
  time_.advance(3 * kTenth);
  const auto observer =
      observeBoundaries({kCMTimeZero, CMTimeMake(2, 10), CMTimeMake(3, 10), CMTimeMake(4, 10)});
  time_.settle();
  EXPECT_EQ(boundaries_, 1) << "the one that it stands at";
  time_.advance(2 * kTenth);
  EXPECT_EQ(boundaries_, 2);
}

TEST_F(TimeObserverTest, NothingIsToldAfterCancel) {
  const auto boundary = observeBoundaries({CMTimeMake(5, 10)});
  const auto periodic = observeEvery(CMTimeMake(1, 10));
  timebase_->setRate(1);
  boundary->cancel();
  periodic->cancel();
  time_.advance(20 * kTenth);
  EXPECT_EQ(boundaries_, 0);
  EXPECT_TRUE(told_.empty());
}

TEST_F(TimeObserverTest, AnIntervalIsCountedInMediaTime) {
  const auto observer = observeEvery(CMTimeMake(5, 10));
  timebase_->setRate(2);
  time_.settle();
  told_.clear();
  time_.advance(kNanosecondsPerSecond);
  ASSERT_EQ(told_.size(), 4u);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(told_[i], 0.5 * (i + 1), 1e-6);
}

TEST_F(TimeObserverTest, AChangeOfRateOrTimeIsToldAtOnce) {
  const auto observer = observeEvery(CMTimeMake(1, 1));
  timebase_->setRate(1);
  time_.settle();
  ASSERT_EQ(told_.size(), 1u);
  timebase_->setTime(CMTimeMake(7, 1));
  time_.settle();
  ASSERT_EQ(told_.size(), 2u);
  EXPECT_NEAR(told_[1], 7, 1e-6);
}

TEST_F(TimeObserverTest, SeveralChangesInARowAreToldOnceWithTheTimeTheyLedTo) {
  const auto observer = observeEvery(CMTimeMake(1, 1));
  timebase_->setRate(0);
  timebase_->setTime(CMTimeMake(3, 1));
  timebase_->setRate(1);
  time_.settle();
  ASSERT_EQ(told_.size(), 1u);
  EXPECT_NEAR(told_[0], 3, 1e-6);
}

TEST_F(TimeObserverTest, FollowsTheTimebaseItWasGivenLast) {
  const auto observer = observeBoundaries({CMTimeMake(5, 10)});
  const auto other = CMTimebase::create(CMClockGetHostTimeClock());
  observer->follow(other);
  timebase_->setRate(1);
  time_.advance(10 * kTenth);
  EXPECT_EQ(boundaries_, 0);
  other->setRate(1);
  time_.advance(10 * kTenth);
  EXPECT_EQ(boundaries_, 1);
}

TEST_F(TimeObserverTest, ChangesOfATimebaseThatIsFollowedNoMoreDoNotDisturb) {
  const auto boundary = observeBoundaries({CMTimeMake(5, 10)});
  const auto periodic = observeEvery(CMTimeMake(1, 1));
  const auto other = CMTimebase::create(CMClockGetHostTimeClock());
  boundary->follow(other);
  periodic->follow(other);
  other->setRate(1);
  time_.settle();
  told_.clear();
  timebase_->setRate(1);
  timebase_->setRate(0);
  time_.advance(6 * kTenth);
  EXPECT_EQ(boundaries_, 1);
  EXPECT_TRUE(told_.empty());
}

TEST_F(TimeObserverTest, AChangeThatIsStillOnItsWayWhenNothingIsFollowedAnyMoreIsNotTold) {
  const auto observer = observeEvery(CMTimeMake(1, 1));
  timebase_->setTime(CMTimeMake(7, 1));
  observer->follow(nullptr);
  time_.settle();
  EXPECT_TRUE(told_.empty());
  observer->follow(timebase_);
  time_.settle();
  ASSERT_EQ(told_.size(), 1u) << "and what follows is";
  EXPECT_NEAR(told_[0], 7, 1e-6);
}

TEST_F(TimeObserverTest, AnObserverThatIsGoneIsNotKeptByItsTimer) {
  auto observer = observeBoundaries({CMTimeMake(5, 10)});
  const std::weak_ptr<BoundaryTimeObserver> weak = observer;
  timebase_->setRate(1);
  time_.settle();
  observer.reset();
  EXPECT_TRUE(weak.expired());
  time_.advance(10 * kTenth);
  EXPECT_EQ(boundaries_, 0);
}

/// The host's clock, whose reads by the thread that made it can be interrupted.
class InterruptedClock final : public CMClock {
 public:
  /// Runs `interrupt` in the read of that thread that comes after `reads` others.
  void interruptAfter(int reads, std::function<void()> interrupt) {
    left_ = reads;
    interrupt_ = std::move(interrupt);
  }
  /// Goes ahead by so much.
  void skip(int64_t nanoseconds) { ahead_ += nanoseconds; }

  [[nodiscard]] int64_t nanosecondsAtHostTime(int64_t hostNanoseconds) const override {
    if (std::this_thread::get_id() == thread_ && interrupt_ && left_-- == 0) {
      std::exchange(interrupt_, nullptr)();
    }
    return hostNanoseconds + ahead_;
  }
  [[nodiscard]] int64_t hostTimeAtNanoseconds(int64_t nanoseconds) const override {
    return nanoseconds - ahead_;
  }

 private:
  std::atomic<int64_t> ahead_{0};
  const std::thread::id thread_ = std::this_thread::get_id();  ///< whoever made it
  mutable int left_ = 0;
  mutable std::function<void()> interrupt_;
};

/// Another thread rewinds while the timer rings on this one.
class RewoundTimeObserver : public TimeObserverTest {
 protected:
  /// Rewinds on another thread, and waits for that unless it has to wait for this thread.
  [[nodiscard]] std::thread rewind() {
    std::promise<void> isDone;
    const auto done = isDone.get_future();
    std::thread rewinding([this, isDone = std::move(isDone)]() mutable {
      timebase_->setRate(0);
      timebase_->setTime(kCMTimeZero);
      timebase_->setRate(1);
      isDone.set_value();
    });
    (void)done.wait_for(std::chrono::milliseconds(20));
    return rewinding;
  }

  /// Rings at a boundary and rewinds after so many looks at the clock. False when that took fewer.
  [[nodiscard]] bool ringsAndIsRewoundAfter(int looks) {
    std::thread rewinding;
    timebase_ = CMTimebase::create(clock_);
    const auto boundary = observeBoundaries({CMTimeMake(500, 1000), CMTimeMake(501, 1000)});
    const auto periodic = observeEvery(CMTimeMake(1, 1000));
    timebase_->setRate(1);
    time_.advance(5 * kTenth - 1);
    clock_->interruptAfter(looks, [&] {
      clock_->skip(2 * kNanosecondsPerMillisecond);
      rewinding = rewind();
    });
    time_.advance(1);
    clock_->interruptAfter(0, nullptr);
    if (!rewinding.joinable()) return false;
    rewinding.join();
    time_.settle();
    boundaries_ = 0;
    told_.clear();
    time_.advance(6 * kTenth);
    EXPECT_EQ(boundaries_, 2) << looks;
    EXPECT_NEAR(static_cast<double>(told_.size()), 600, 3) << looks;
    boundary->cancel();
    periodic->cancel();
    return true;
  }

  std::shared_ptr<InterruptedClock> clock_ = std::make_shared<InterruptedClock>();
};

TEST_F(RewoundTimeObserver, GoesOnTellingAfterWhicheverLookAtTheClock) {
  int looks = 0;
  while (ringsAndIsRewoundAfter(looks)) ++looks;
  EXPECT_GT(looks, 3);
}

/// In real time: a client on a concurrent queue rewinds the moment that it is told, while the
/// observer looks for the next boundary on another worker.
TEST(TimeObserverStress, NoRewindLosesABoundary) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE("ZAFFO_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr int kRounds = 3000;
  const CMTime boundary = CMTimeMake(1, 1);
  const auto timebase = CMTimebase::create(CMClockGetHostTimeClock());
  std::atomic<int> told{0};
  const auto observer = std::make_shared<BoundaryTimeObserver>(
      std::vector{boundary}, dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH),
      [&told] { ++told; });
  observer->follow(timebase);
  const auto wait = [](auto condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return condition();
  };
  for (int round = 0; round < kRounds; ++round) {
    timebase->setRate(0);
    timebase->setTime(boundary - CMTimeMake(static_cast<int64_t>(random() % 50), 1'000'000));
    timebase->setRate(1);
    ASSERT_TRUE(wait([&] { return told > round; })) << "round " << round;
    const int64_t goOn = TimeSource::now() + static_cast<int64_t>(random() % 30'000);
    while (TimeSource::now() < goOn) continue;
  }
  observer->cancel();
  dispatch_wait_until_idle();
  EXPECT_EQ(told, kRounds);
}

}  // namespace
}  // namespace zaffo
