// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/DeviceClockTracker.h"

#include <gtest/gtest.h>

#include <cmath>

#include "doubles/ManualTime.h"
#include "platform/media/FrameTime.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;
constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
using State = DeviceClockTracker::State;

/// A device whose position is a function of host time, reported as often as the output does.
class DeviceClockTrackerTest : public testing::Test {
 protected:
  DeviceClockTrackerTest() { clock->setAnchor(0, TimeSource::now()); }

  State report(int64_t framesHeard) {
    const int64_t shown = clock->nanosecondsAtHostTime(TimeSource::now());
    EXPECT_GE(shown, lastShown);
    lastShown = shown;
    return tracker.report(TimeSource::now(), framesHeard);
  }

  /// Lets a device of the given pace play for `span`, with reports that lie up to `jitter` off.
  void play(double pace, int64_t span, int64_t jitter = 0) {
    const int64_t interval = tracker.state() == State::Settling ? 20 : 500;
    for (const int64_t end = TimeSource::now() + span; TimeSource::now() < end;) {
      time.advance(interval * kMillisecond);
      heard += pace * static_cast<double>(interval) * kRate / 1000;
      odd = !odd;
      report(std::llround(heard) + (odd ? 1 : -1) * framesAtNanoseconds(jitter, kRate));
    }
  }

  /// How far the device is ahead of the clock, in milliseconds.
  double error() const {
    const double device = (static_cast<double>(tracker.offset()) + heard) * 1000 / kRate;
    return device - static_cast<double>(clock->nanosecondsAtHostTime(TimeSource::now())) / 1e6;
  }

  ManualTime time;
  std::shared_ptr<CMAudioClock> clock = CMAudioClock::create();
  double heard = 0;
  bool odd = false;
  int64_t lastShown = 0;
  DeviceClockTracker tracker{clock, kRate, TimeSource::now()};
};

TEST_F(DeviceClockTrackerTest, SettlesWhenTheDeviceMovesInStepWithTheHost) {
  for (int i = 0; i < 50; ++i) {
    time.advance(20 * kMillisecond);
    EXPECT_EQ(report(0), State::Settling);
  }
  play(1.0, 40 * kMillisecond);
  EXPECT_EQ(tracker.state(), State::Settling);
  play(1.0, 20 * kMillisecond);
  EXPECT_EQ(tracker.state(), State::Following);
  EXPECT_NEAR(error(), 0, 0.1);
}

TEST_F(DeviceClockTrackerTest, DoesNotSettleOnADeviceThatLeapsAndRests) {
  for (int i = 1; i <= 10; ++i) {
    time.advance(20 * kMillisecond);
    EXPECT_EQ(report(i / 3 * 5000), State::Settling);
  }
}

TEST_F(DeviceClockTrackerTest, TakesOnADeviceThatIsFasterThanTheHost) {
  play(1.0, 100 * kMillisecond);
  play(1.0005, 600'000 * kMillisecond);
  EXPECT_NEAR(error(), 0, 2);
  const int64_t before = clock->nanosecondsAtHostTime(TimeSource::now());
  const int64_t after = clock->nanosecondsAtHostTime(TimeSource::now() + 1'000'000'000);
  EXPECT_NEAR(static_cast<double>(after - before), 1.0005e9, 1e5);
}

TEST_F(DeviceClockTrackerTest, AnswersUnsteadyReportsWithASteadyClock) {
  play(1.0, 100 * kMillisecond);
  for (int i = 0; i < 200; ++i) {
    play(0.9999, 500 * kMillisecond, 5 * kMillisecond);
    EXPECT_NEAR(error(), 0, 6);
  }
}

TEST_F(DeviceClockTrackerTest, MakesUpASmallLossByRateAlone) {
  play(1.0, 100 * kMillisecond);
  const int64_t offset = tracker.offset();
  heard -= 0.02 * kRate;
  play(1.0, 60'000 * kMillisecond);
  EXPECT_EQ(tracker.offset(), offset);
  EXPECT_NEAR(error(), 0, 2);
}

TEST_F(DeviceClockTrackerTest, GivesADeviceThatLostMuchAnotherPlace) {
  play(1.0, 100 * kMillisecond);
  const int64_t offset = tracker.offset();
  heard -= 0.3 * kRate;
  play(1.0, 1000 * kMillisecond);
  EXPECT_NEAR(static_cast<double>(tracker.offset() - offset), 0.3 * kRate, 100);
  EXPECT_NEAR(error(), 0, 0.1);
}

TEST_F(DeviceClockTrackerTest, CallsADeviceStalledThatMovesNoMore) {
  play(1.0, 100 * kMillisecond);
  play(0.0, 500 * kMillisecond);
  EXPECT_EQ(tracker.state(), State::Following);
  play(0.0, 500 * kMillisecond);
  EXPECT_EQ(tracker.state(), State::Stalled);
}

TEST_F(DeviceClockTrackerTest, GivesADeviceThatNeverMovesFiveSeconds) {
  play(0.0, 4980 * kMillisecond);
  EXPECT_EQ(tracker.state(), State::Settling);
  play(0.0, 20 * kMillisecond);
  EXPECT_EQ(tracker.state(), State::Stalled);
}

}  // namespace
}  // namespace zaffo::media
