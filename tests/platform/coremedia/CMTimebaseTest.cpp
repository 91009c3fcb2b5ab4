// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMTimebase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "doubles/ManualTime.h"
#include "platform/coremedia/CMAudioClock.h"

namespace zaffo {
namespace {

constexpr int64_t kSecond = kNanosecondsPerSecond;

class CMTimebaseTest : public testing::Test {
 protected:
  int64_t now() const { return time.nanoseconds(); }
  double seconds() const { return CMTimeGetSeconds(timebase->time()); }

  ManualTime time;
  const std::shared_ptr<CMTimebase> timebase = CMTimebase::create(CMClockGetHostTimeClock());
};

TEST_F(CMTimebaseTest, NeedsAClock) {
  EXPECT_EQ(CMTimebase::create(nullptr), nullptr);
}

TEST_F(CMTimebaseTest, StartsAtZeroStandingStill) {
  EXPECT_EQ(timebase->time(), kCMTimeZero);
  EXPECT_EQ(timebase->rate(), 0);
  EXPECT_EQ(timebase->masterClock(), CMClockGetHostTimeClock());
  time.advance(kSecond);
  EXPECT_EQ(timebase->time(), kCMTimeZero);
}

TEST_F(CMTimebaseTest, AdvancesAtItsRate) {
  for (const double rate : {1.0, 0.5, 2.0, -1.0, 1.0 / 3, -0.25}) {
    timebase->setRateAndAnchorTime(rate, CMTimeMake(10, 1), now());
    time.advance(3 * kSecond);
    EXPECT_NEAR(seconds(), 10 + 3 * rate, 1e-9) << rate;
    EXPECT_EQ(timebase->rate(), rate);
  }
}

TEST_F(CMTimebaseTest, KeepsATimeAsItWasSetWhileItStandsStill) {
  timebase->setTime(CMTimeMake(1001, 30000));
  EXPECT_EQ(timebase->time().value, 1001);
  EXPECT_EQ(timebase->time().timescale, 30000);
  timebase->setRate(1);
  EXPECT_EQ(timebase->time().timescale, 1'000'000'000);
}

TEST_F(CMTimebaseTest, TellsFromWhereItGoesOn) {
  timebase->setTime(CMTimeMake(1001, 30000));
  EXPECT_EQ(timebase->anchorTime(), CMTimeMake(1001, 30000));
  timebase->setRate(1);
  time.advance(kSecond);
  EXPECT_EQ(timebase->anchorTime(), CMTimeMake(1001, 30000)) << "wherever it has got to since";
  timebase->setRate(2);
  EXPECT_EQ(timebase->anchorTime(), timebase->time());
  timebase->setRateAndAnchorTime(1, CMTimeMake(7, 1), now() + kSecond);
  EXPECT_EQ(timebase->anchorTime(), CMTimeMake(7, 1)) << "before it gets there";
}

TEST_F(CMTimebaseTest, DoesNotJumpWhenTheRateChanges) {
  timebase->setRate(1);
  time.advance(kSecond);
  timebase->setRate(2);
  EXPECT_EQ(seconds(), 1);
  time.advance(kSecond);
  timebase->setRate(0);
  EXPECT_EQ(seconds(), 3);
  time.advance(kSecond);
  EXPECT_EQ(seconds(), 3);
  timebase->setRate(-1);
  time.advance(kSecond);
  EXPECT_EQ(seconds(), 2);
}

TEST_F(CMTimebaseTest, RunsOnFromATimeThatIsSet) {
  timebase->setRate(2);
  time.advance(kSecond);
  timebase->setTime(CMTimeMake(-5, 1));
  time.advance(kSecond);
  EXPECT_EQ(seconds(), -3);
  EXPECT_EQ(timebase->rate(), 2);
}

TEST_F(CMTimebaseTest, TakesAnAnchorInTheFuture) {
  timebase->setRateAndAnchorTime(1, CMTimeMake(4, 1), now() + kSecond);
  EXPECT_EQ(seconds(), 3);
  time.advance(kSecond);
  EXPECT_EQ(seconds(), 4);
  EXPECT_EQ(timebase->timeAtHostTime(now() + kSecond), CMTimeMake(5, 1));
}

TEST_F(CMTimebaseTest, LeavesEverythingAsItIsForValuesThatMakeNoSense) {
  timebase->setRateAndAnchorTime(1, CMTimeMake(4, 1), now());
  for (const double rate : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    timebase->setRate(rate);
    timebase->setRateAndAnchorTime(rate, kCMTimeZero, now());
  }
  for (const CMTime& odd : {kCMTimeInvalid, kCMTimeIndefinite, kCMTimePositiveInfinity}) {
    timebase->setTime(odd);
    timebase->setRateAndAnchorTime(2, odd, now());
    EXPECT_EQ(timebase->hostTimeAtTime(odd), std::nullopt);
  }
  timebase->setMasterClock(nullptr);
  EXPECT_EQ(seconds(), 4);
  EXPECT_EQ(timebase->rate(), 1);
  EXPECT_NE(timebase->masterClock(), nullptr);
}

TEST_F(CMTimebaseTest, HoldsTimesBeyondTheRangeOfNanosecondsAtItsEnd) {
  timebase->setTime(CMTimeMake(int64_t{1} << 62, 1));
  timebase->setRate(1);
  time.advance(kSecond);
  EXPECT_EQ(timebase->time().value, std::numeric_limits<int64_t>::max());
  timebase->setTime(CMTimeMake(-(int64_t{1} << 62), 1));
  timebase->setRate(-1);
  time.advance(kSecond);
  EXPECT_EQ(timebase->time().value, std::numeric_limits<int64_t>::min());
}

TEST_F(CMTimebaseTest, ContinuesFromThePresentTimeOnAnotherClock) {
  const auto audio = CMAudioClock::create();
  audio->setAnchor(77 * kSecond, now(), 0.5);
  timebase->setRate(1);
  time.advance(2 * kSecond);
  timebase->setMasterClock(audio);
  EXPECT_EQ(seconds(), 2);
  EXPECT_EQ(timebase->masterClock(), audio);
  time.advance(2 * kSecond);
  EXPECT_EQ(seconds(), 3) << "the clock runs at half speed";
  timebase->setMasterClock(CMClockGetHostTimeClock());
  EXPECT_EQ(seconds(), 3);
  time.advance(2 * kSecond);
  EXPECT_EQ(seconds(), 5);
}

TEST_F(CMTimebaseTest, KeepsATimeThatWasSetWhenTheClockIsSwitchedAtRest) {
  timebase->setTime(CMTimeMake(1, 3));
  timebase->setMasterClock(CMAudioClock::create());
  EXPECT_EQ(timebase->time().timescale, 3);
}

TEST_F(CMTimebaseTest, TellsWhenATimeIsReached) {
  timebase->setRateAndAnchorTime(2, CMTimeMake(10, 1), now());
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(14, 1)), now() + 2 * kSecond);
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(10, 1)), now());
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(9, 1)), std::nullopt);
  timebase->setRateAndAnchorTime(-0.5, CMTimeMake(10, 1), now());
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(9, 1)), now() + 2 * kSecond);
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(11, 1)), std::nullopt);
  timebase->setRate(0);
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(10, 1)), std::nullopt);
}

TEST_F(CMTimebaseTest, NeverReachesATimeOnAClockThatStandsStill) {
  timebase->setMasterClock(CMAudioClock::create());
  timebase->setRate(1);
  EXPECT_EQ(timebase->hostTimeAtTime(CMTimeMake(1, 1)), std::nullopt);
}

TEST_F(CMTimebaseTest, HasReachedATimeAtTheHostTimeItTellsAndNotBefore) {
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> rates(-3, 3);
  const auto audio = CMAudioClock::create();
  audio->setAnchor(0, now(), 0.9991);
  for (int i = 0; i < 500; ++i) {
    if (i == 250) timebase->setMasterClock(audio);
    const double rate = rates(random);
    timebase->setRateAndAnchorTime(rate, CMTimeMake(static_cast<int64_t>(random() % 90000), 90000),
                                   now());
    const CMTime wanted =
        timebase->time() +
        CMTimeMake((rate > 0 ? 1 : -1) * static_cast<int64_t>(1 + random() % 90000), 90000);
    const auto host = timebase->hostTimeAtTime(wanted);
    ASSERT_TRUE(host);
    const auto hasReached = [&](int64_t at) {
      const CMTime shown = CMTimeSubtract(timebase->timeAtHostTime(at), wanted);
      const CMTime tolerance = CMTimeMake(1, 1'000'000'000);  // times lie between nanoseconds
      return rate > 0 ? shown + tolerance >= kCMTimeZero : shown - tolerance <= kCMTimeZero;
    };
    ASSERT_TRUE(hasReached(*host)) << rate;
    const auto margin = static_cast<int64_t>(4 + 4 / std::fabs(rate));
    ASSERT_FALSE(hasReached(*host - margin)) << rate;
  }
}

TEST_F(CMTimebaseTest, TellsObserversOfEachChangeUntilTheyAreDropped) {
  int changes = 0;
  auto token = timebase->observeChanges([&] {
    ++changes;
    EXPECT_EQ(timebase->rate(), timebase->rate());  // no lock is held
  });
  timebase->setRate(1);
  timebase->setTime(kCMTimeZero);
  timebase->setRateAndAnchorTime(2, kCMTimeZero, now());
  timebase->setMasterClock(CMAudioClock::create());
  EXPECT_EQ(changes, 4);
  timebase->setRate(2);
  timebase->setRate(std::nan(""));
  EXPECT_EQ(changes, 4) << "nothing changed";
  token.reset();
  timebase->setRate(0);
  EXPECT_EQ(changes, 4);
}

TEST_F(CMTimebaseTest, AnObserverThatIsDroppedByAnotherIsNotCalled) {
  std::shared_ptr<void> second;
  int calls = 0;
  const auto first = timebase->observeChanges([&] { second.reset(); });
  second = timebase->observeChanges([&] { ++calls; });
  timebase->setRate(1);
  EXPECT_EQ(calls, 0);
}

TEST_F(CMTimebaseTest, LetsGoOfItsClockAndObserversWithItself) {
  auto clock = CMAudioClock::create();
  auto own = CMTimebase::create(clock);
  const auto held = std::make_shared<int>(0);
  auto token = own->observeChanges([held] { ++*held; });
  own.reset();
  EXPECT_EQ(clock.use_count(), 1);
  token.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(CMTimebaseTest, IsWholeInEveryReadWhileOthersSetIt) {
  // Rate and time are set as pairs; a read that mixed two pairs would be off by a million seconds.
  std::jthread setter([this] {
    for (int i = 0; i < 5000; ++i) {
      timebase->setRateAndAnchorTime(1 + i % 2, CMTimeMake((i % 2) * 1'000'000, 1), now());
      timebase->setMasterClock(i % 3 == 0 ? CMAudioClock::create() : CMClockGetHostTimeClock());
    }
  });
  for (int i = 0; i < 5000; ++i) {
    const double shown = seconds();
    ASSERT_TRUE(shown == 0 || shown == 1'000'000) << shown;
  }
}

}  // namespace
}  // namespace zaffo
