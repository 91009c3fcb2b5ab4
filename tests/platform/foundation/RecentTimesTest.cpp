// SPDX-License-Identifier: Apache-2.0
#include "platform/RecentTimes.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "platform/TimeLog.h"

namespace zaffo {
namespace {

TEST(TimeLog, IsAllZeroWhileNothingWasDone) {
  const ManualTime time;
  EXPECT_EQ(TimeLog().recent(), RecentTimes());
}

TEST(TimeLog, TellsTheMedianAndTheLongest) {
  const ManualTime time;
  TimeLog log;
  for (const int64_t duration : {5, 1, 9, 2, 3}) log.note(duration);
  EXPECT_EQ(log.recent(), (RecentTimes{5, 3, 9}));
  log.note(4);
  EXPECT_EQ(log.recent(), (RecentTimes{6, 4, 9})) << "the upper one of two in the middle";
}

TEST(TimeLog, ForgetsWhatEndedASecondAgo) {
  ManualTime time;
  TimeLog log;
  log.note(7);
  time.advance(kNanosecondsPerSecond / 2);
  log.note(3);
  time.advance(kNanosecondsPerSecond / 2 - 1);
  EXPECT_EQ(log.recent(), (RecentTimes{2, 7, 7}));
  time.advance(1);
  EXPECT_EQ(log.recent(), (RecentTimes{1, 3, 3}));
  time.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(log.recent(), RecentTimes());
}

TEST(TimeLog, OfMoreThanItHoldsTellsTheLatest) {
  const ManualTime time;
  TimeLog log;
  log.note(1000);
  for (int i = 0; i < 128; ++i) log.note(i);
  EXPECT_EQ(log.recent(), (RecentTimes{128, 64, 127}));
}

TEST(RecentTimes, AreKeptApartByTheWork) {
  ManualTime time;
  time.advance(kNanosecondsPerSecond);  // whatever was done before
  noteTime(TimedWork::Decoding, 5);
  noteTime(TimedWork::Drawing, 2);
  noteTime(TimedWork::Drawing, 8);
  EXPECT_EQ(recentTimes(TimedWork::Decoding), (RecentTimes{1, 5, 5}));
  EXPECT_EQ(recentTimes(TimedWork::Drawing), (RecentTimes{2, 8, 8}));
}

}  // namespace
}  // namespace zaffo
