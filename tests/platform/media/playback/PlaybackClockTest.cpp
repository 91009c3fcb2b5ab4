// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/PlaybackClock.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "doubles/ManualTime.h"
#include "platform/coremedia/CMAudioClock.h"

namespace zaffo::media {
namespace {

constexpr int64_t kSecond = kNanosecondsPerSecond;

CMTime seconds(double value) {
  return CMTimeMakeWithSeconds(value, 1'000'000);
}

/// What is done at a time of the host, in seconds, and where the playback is then.
struct Row {
  double host;
  std::function<void(PlaybackClock&, int64_t host)> action;  ///< none: time goes by
  double position;
};

void expectRows(PlaybackClock& clock, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const auto host = static_cast<int64_t>(row.host * kSecond);
    if (row.action) row.action(clock, host);
    EXPECT_NEAR(CMTimeGetSeconds(clock.positionAt(host)), row.position, 1e-6) << "at " << row.host;
  }
}

const auto kNothing = nullptr;

auto standAt(double time) {
  return [time](PlaybackClock& clock, int64_t host) { clock.standAt(seconds(time), host); };
}
auto stop() {
  return [](PlaybackClock& clock, int64_t host) { clock.stop(host); };
}
/// Starts at once, or as much later.
auto start(double rate, double later = 0) {
  return [rate, later](PlaybackClock& clock, int64_t host) {
    clock.start(rate, host + static_cast<int64_t>(later * kSecond), host);
  };
}
auto changeRate(double rate, bool expected = true) {
  return [rate, expected](PlaybackClock& clock, int64_t host) {
    EXPECT_EQ(clock.changeRate(rate, host), expected);
  };
}

TEST(PlaybackClock, StandsStillUntilItIsStarted) {
  PlaybackClock clock(seconds(10));
  expectRows(clock, {{0, kNothing, 0}, {5, kNothing, 0}, {5, standAt(3), 3}, {9, kNothing, 3}});
}

TEST(PlaybackClock, RunsFromWhereItStoodAndStopsWhereItIs) {
  PlaybackClock clock(seconds(100));
  expectRows(clock, {{0, standAt(3), 3},
                     {10, start(1), 3},
                     {12, kNothing, 5},
                     {13, stop(), 6},
                     {20, kNothing, 6},
                     {30, start(2), 6},
                     {31, kNothing, 8}});
}

TEST(PlaybackClock, UntilAStartIsHeardThePositionIsWhereItStartsFrom) {
  PlaybackClock clock(seconds(100));
  expectRows(clock, {{0, standAt(3), 3},
                     {10, start(1, 0.5), 3},
                     {10.2, kNothing, 3},
                     {10.5, kNothing, 3},
                     {10.7, kNothing, 3.2}});
  EXPECT_LT(clock.timeAt(10 * kSecond), seconds(3)) << "the line itself is on its way there";
}

TEST(PlaybackClock, AStopBeforeTheStartIsHeardLeavesItWhereItWas) {
  PlaybackClock clock(seconds(100));
  expectRows(clock,
             {{0, standAt(3), 3}, {10, start(1, 0.5), 3}, {10.2, stop(), 3}, {11, kNothing, 3}});
  EXPECT_EQ(clock.timeAt(11 * kSecond), seconds(3));
}

TEST(PlaybackClock, AChangeOfRateGoesOnFromThePlaceThatWasReached) {
  PlaybackClock clock(seconds(100));
  expectRows(clock, {{10, start(1), 0},
                     {12, changeRate(2), 2},
                     {13, kNothing, 4},
                     {14, changeRate(0.5), 6},
                     {16, kNothing, 7}});
}

TEST(PlaybackClock, AStartThatIsNotHeardYetIsToBeMadeAnewForAnotherRate) {
  PlaybackClock clock(seconds(100));
  expectRows(clock, {{0, standAt(3), 3},
                     {10, start(1, 0.5), 3},
                     {10.2, changeRate(2, false), 3},
                     {10.7, kNothing, 3.2},
                     {10.7, start(2, 0.3), 3.2},
                     {11.0, kNothing, 3.2},
                     {11.5, kNothing, 4.2}});
}

TEST(PlaybackClock, PositionsLieWithinTheItem) {
  PlaybackClock clock(seconds(10));
  expectRows(clock, {{0, standAt(9), 9},
                     {0, start(1), 9},
                     {5, kNothing, 10},
                     {6, stop(), 10},
                     {7, standAt(2), 2}});
  EXPECT_EQ(clock.clamped(seconds(-1)), kCMTimeZero);
  EXPECT_EQ(clock.clamped(seconds(4)), seconds(4));
  EXPECT_EQ(clock.clamped(kCMTimePositiveInfinity), seconds(10));
}

TEST(PlaybackClock, WithoutADurationThereIsNoEnd) {
  PlaybackClock clock(kCMTimeIndefinite);
  expectRows(clock, {{0, standAt(1e6), 1e6}, {0, start(1), 1e6}, {5, kNothing, 1e6 + 5}});
  EXPECT_EQ(clock.clamped(seconds(-1)), kCMTimeZero);
}

TEST(PlaybackClock, FollowsTheClockThatItIsGiven) {
  const ManualTime time;
  const int64_t now = TimeSource::now();
  const auto audio = CMAudioClock::create();
  audio->setAnchor(0, now, 1.25);  // runs a quarter too fast
  PlaybackClock clock(seconds(100));
  clock.follow(audio);
  clock.start(1, now, now);
  EXPECT_NEAR(CMTimeGetSeconds(clock.positionAt(now + 4 * kSecond)), 5, 1e-6);
}

TEST(PlaybackClock, WhoeverObservesTheTimebaseSeesHowFarItRanBeforeItIsSetElsewhere) {
  const ManualTime time;
  PlaybackClock clock(seconds(100));
  clock.start(1, TimeSource::now() - 2 * kSecond, TimeSource::now());
  std::vector<double> seen;
  const auto observation = clock.timebase()->observeChanges(
      [&] { seen.push_back(CMTimeGetSeconds(clock.timebase()->time())); });
  clock.standAt(seconds(50), TimeSource::now());
  EXPECT_EQ(seen, (std::vector<double>{2, 50}));
}

}  // namespace
}  // namespace zaffo::media
