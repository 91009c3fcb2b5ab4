// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMAudioClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
constexpr int64_t kSecond = kNanosecondsPerSecond;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

class CMAudioClockTest : public testing::Test {
 protected:
  int64_t now() const { return time.nanoseconds(); }
  int64_t shown() const { return clock->nanosecondsAtHostTime(now()); }
  /// The device says it is at what the clock shows and `ahead` more.
  void anchorAhead(int64_t ahead, double rate = 1) {
    clock->setAnchor(shown() + ahead, now(), rate);
  }

  ManualTime time;
  const std::shared_ptr<CMAudioClock> clock = CMAudioClock::create();
};

TEST_F(CMAudioClockTest, StandsAtZeroUntilTheFirstAnchor) {
  EXPECT_EQ(shown(), 0);
  time.advance(kSecond);
  EXPECT_EQ(shown(), 0);
  EXPECT_EQ(clock->hostTimeAtNanoseconds(1), kNever);
}

TEST_F(CMAudioClockTest, AdoptsTheFirstAnchorAndRunsOnAtItsRate) {
  clock->setAnchor(5 * kSecond, now());
  EXPECT_EQ(shown(), 5 * kSecond);
  time.advance(kSecond);
  EXPECT_EQ(shown(), 6 * kSecond);
  EXPECT_EQ(clock->time(), CMTimeMake(6, 1));
  EXPECT_EQ(clock->time().timescale, 1'000'000'000);
}

TEST_F(CMAudioClockTest, TakesAnAnchorOfThePastOrTheFutureToThePresent) {
  clock->setAnchor(kSecond, now() - 10 * kMillisecond, 0.5);
  EXPECT_EQ(shown(), kSecond + 5 * kMillisecond);
  const auto other = CMAudioClock::create();
  other->setAnchor(kSecond, now() + 10 * kMillisecond);
  EXPECT_EQ(other->nanosecondsAtHostTime(now()), kSecond - 10 * kMillisecond);
}

TEST_F(CMAudioClockTest, NeverShowsLessThanZero) {
  clock->setAnchor(-kSecond, now());
  EXPECT_EQ(shown(), 0);
}

TEST_F(CMAudioClockTest, BendsTowardsAnAnchorThatDisagreesSlightly) {
  for (const int64_t ahead :
       {4 * kMillisecond, -4 * kMillisecond, 80 * kMillisecond, -80 * kMillisecond}) {
    SCOPED_TRACE(ahead);
    clock->setAnchor(shown(), now());
    time.advance(10 * kSecond);
    const int64_t before = shown(), start = now();
    anchorAhead(ahead);
    EXPECT_EQ(shown(), before) << "no jump";
    int64_t last = before;
    const int64_t bend = std::max(200 * kMillisecond, std::abs(ahead) * 20);
    for (int64_t step = 0; step < bend; step += kMillisecond) {
      time.advance(kMillisecond);
      const int64_t moved = shown() - last;
      last = shown();
      EXPECT_NEAR(static_cast<double>(moved), kMillisecond, 0.0501 * kMillisecond);
    }
    EXPECT_NEAR(static_cast<double>(shown() - before - (now() - start)), ahead, 2);
    time.advance(kSecond);
    EXPECT_EQ(shown() - last, kSecond) << "then at the device's rate again";
  }
}

TEST_F(CMAudioClockTest, JumpsForwardToADeviceThatIsFarAhead) {
  clock->setAnchor(0, now());
  time.advance(kSecond);
  anchorAhead(500 * kMillisecond);
  EXPECT_EQ(shown(), 1500 * kMillisecond);
}

TEST_F(CMAudioClockTest, StandsStillUntilADeviceThatIsFarBehindHasCaughtUp) {
  clock->setAnchor(0, now());
  time.advance(kSecond);
  anchorAhead(-500 * kMillisecond);
  EXPECT_EQ(shown(), kSecond);
  time.advance(499 * kMillisecond);
  EXPECT_EQ(shown(), kSecond);
  time.advance(101 * kMillisecond);
  EXPECT_EQ(shown(), 1100 * kMillisecond);
}

TEST_F(CMAudioClockTest, StopsWithTheDeviceAndGoesOnWithIt) {
  clock->setAnchor(0, now());
  time.advance(kSecond);
  anchorAhead(0, 0);
  time.advance(kSecond);
  EXPECT_EQ(shown(), kSecond);
  EXPECT_EQ(clock->hostTimeAtNanoseconds(kSecond + 1), kNever);
  anchorAhead(0, 1);
  time.advance(kSecond);
  EXPECT_EQ(shown(), 2 * kSecond);
}

TEST_F(CMAudioClockTest, TakesRatesThatMakeNoSenseForZero) {
  for (const double rate :
       {-1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    const auto odd = CMAudioClock::create();
    odd->setAnchor(kSecond, now(), rate);
    time.advance(kSecond);
    EXPECT_EQ(odd->nanosecondsAtHostTime(now()), kSecond);
  }
}

TEST_F(CMAudioClockTest, TellsTheHostTimeOfItsOwn) {
  clock->setAnchor(0, now(), 0.5);
  EXPECT_EQ(clock->hostTimeAtNanoseconds(kSecond), now() + 2 * kSecond);
  time.advance(kSecond);
  clock->setAnchor(shown() + 4 * kMillisecond, now(), 1);
  for (int64_t ahead = 0; ahead < kSecond; ahead += 7 * kMillisecond) {
    const int64_t wanted = shown() + ahead;
    const int64_t host = clock->hostTimeAtNanoseconds(wanted);
    EXPECT_NEAR(static_cast<double>(clock->nanosecondsAtHostTime(host)),
                static_cast<double>(wanted), 2);
  }
  EXPECT_LE(clock->hostTimeAtNanoseconds(shown() - kMillisecond), now());
}

TEST_F(CMAudioClockTest, ShowsTheSameForAPastHostTimeAfterLaterAnchors) {
  clock->setAnchor(0, now());
  std::vector<std::pair<int64_t, int64_t>> shownBefore;
  for (int i = 0; i < 12; ++i) {
    time.advance(10 * kMillisecond);
    shownBefore.emplace_back(now(), shown());
    anchorAhead((i % 3 - 1) * 150 * kMillisecond, i % 4 == 0 ? 0 : 1);
  }
  for (const auto& [host, value] : shownBefore) {
    const int64_t again = clock->nanosecondsAtHostTime(host - 1);
    EXPECT_NEAR(static_cast<double>(again), static_cast<double>(value), 2);
  }
}

TEST_F(CMAudioClockTest, DoesNotGoBackForAReaderThatIsLate) {
  clock->setAnchor(kSecond, now(), 0);
  const int64_t late = now();
  const int64_t seen = shown();
  for (int i = 0; i < 100; ++i) {
    time.advance(kMillisecond);
    anchorAhead(0, 1);
  }
  EXPECT_GE(clock->nanosecondsAtHostTime(late), seen);
  EXPECT_LE(clock->nanosecondsAtHostTime(late), shown());
}

TEST_F(CMAudioClockTest, StaysNearADeviceWhoseAnchorsJitter) {
  clock->setAnchor(0, now());
  const int64_t start = now();
  int64_t last = 0;
  for (int i = 1; i <= 1000; ++i) {
    time.advance(10 * kMillisecond);
    ASSERT_GE(shown(), last);
    last = shown();
    const int64_t jitter = ((i * 7919) % 13 - 6) * kMillisecond / 4;  // up to 1.5 ms
    clock->setAnchor(now() - start + jitter, now());
    ASSERT_EQ(shown(), last);
    ASSERT_NEAR(static_cast<double>(shown()), static_cast<double>(now() - start), kMillisecond);
  }
}

TEST_F(CMAudioClockTest, FollowsADeviceThatRunsFasterThanTheHost) {
  clock->setAnchor(0, now());
  const int64_t start = now();
  for (int i = 1; i <= 2000; ++i) {
    time.advance(10 * kMillisecond);
    clock->setAnchor((now() - start) + (now() - start) / 1000, now());  // 0.1 % fast
  }
  const int64_t device = (now() - start) + (now() - start) / 1000;
  EXPECT_NEAR(static_cast<double>(shown()), static_cast<double>(device), kMillisecond);
}

TEST(CMAudioClock, NeverGoesBackWhileAnchorsComeFromAnotherThread) {
  const auto clock = CMAudioClock::create();
  std::atomic<bool> stop{false};
  std::thread device([&] {
    const int64_t start = TimeSource::now();
    for (int i = 0; i < 20000; ++i) {
      const int64_t now = TimeSource::now();
      const int64_t disagreement = (i * 7919 % 401 - 200) * kMillisecond;  // every kind of bend
      clock->setAnchor(kSecond + now - start + disagreement, now, i % 5 == 0 ? 0 : 1);
    }
    stop = true;
  });
  std::vector<std::thread> readers;
  std::atomic<int> backSteps{0};
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      int64_t last = 0;
      while (!stop) {
        const int64_t shown = clock->nanosecondsAtHostTime(TimeSource::now());
        if (shown < last) ++backSteps;
        last = shown;
      }
    });
  }
  device.join();
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(backSteps, 0);
}

TEST(CMAudioClockCreate, GivesAClockThatRunsWithTheHostFromZero) {
  ManualTime time;
  time.advance(3 * kSecond);
  std::shared_ptr<CMAudioClock> clock;
  ASSERT_EQ(CMAudioClockCreate(&clock), 0);
  EXPECT_EQ(clock->time(), kCMTimeZero);
  time.advance(kSecond / 4);
  EXPECT_EQ(clock->time(), CMTimeMake(1, 4));
}

TEST(CMAudioClockCreate, GivesAClockOfItsOwnEachTime) {
  ManualTime time;
  std::shared_ptr<CMAudioClock> first, second;
  ASSERT_EQ(CMAudioClockCreate(&first), 0);
  time.advance(kSecond);
  ASSERT_EQ(CMAudioClockCreate(&second), 0);
  EXPECT_EQ(first->time(), CMTimeMake(1, 1));
  EXPECT_EQ(second->time(), kCMTimeZero);
}

TEST(CMAudioClockCreate, GivesAClockThatADeviceMayTakeOver) {
  ManualTime time;
  std::shared_ptr<CMAudioClock> clock;
  ASSERT_EQ(CMAudioClockCreate(&clock), 0);
  time.advance(kSecond);
  clock->setAnchor(5 * kSecond, time.nanoseconds(), 0.5);
  EXPECT_EQ(clock->time(), CMTimeMake(5, 1));
  time.advance(kSecond);
  EXPECT_EQ(clock->time(), CMTimeMake(11, 2));
}

TEST(CMAudioClockCreate, TellsThatItHasNowhereToPutTheClock) {
  EXPECT_EQ(CMAudioClockCreate(nullptr), kCMClockError_MissingRequiredParameter);
}

}  // namespace
}  // namespace zaffo
