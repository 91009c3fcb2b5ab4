#include "platform/avfoundation/TimeObserver.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"

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

}  // namespace
}  // namespace zaffo
