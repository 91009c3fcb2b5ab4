// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/DueTime.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"

namespace zaffo::media {
namespace {

class DueTimeTest : public testing::Test {
 protected:
  ManualTime time;
  std::shared_ptr<CMTimebase> timebase = CMTimebase::create(CMClockGetHostTimeClock());
};

TEST_F(DueTimeTest, WhatIsOnItsWayIsDueJustAfterItsTime) {
  timebase->setRate(2);
  const auto due = dueHostTime(*timebase, CMTimeMake(1, 1));
  ASSERT_TRUE(due);
  EXPECT_GT(*due, TimeSource::now() + kNanosecondsPerSecond / 2);
  EXPECT_LT(*due, TimeSource::now() + kNanosecondsPerSecond / 2 + kNanosecondsPerMillisecond);
  EXPECT_GE(timebase->timeAtHostTime(*due), CMTimeMake(1, 1));
}

TEST_F(DueTimeTest, WhatIsThereAlreadyIsDueNow) {
  timebase->setTime(CMTimeMake(5, 1));
  EXPECT_EQ(dueHostTime(*timebase, CMTimeMake(5, 1)), TimeSource::now());
  EXPECT_EQ(dueHostTime(*timebase, CMTimeMake(3, 1)), TimeSource::now());
}

TEST_F(DueTimeTest, WhatIsNotOnItsWayIsNeverDue) {
  EXPECT_EQ(dueHostTime(*timebase, CMTimeMake(1, 1)), std::nullopt);
  timebase->setRate(-1);
  EXPECT_EQ(dueHostTime(*timebase, CMTimeMake(1, 1)), std::nullopt);
}

TEST_F(DueTimeTest, NobodyWakesAgainAtOnce) {
  EXPECT_GT(wakeHostTime(TimeSource::now()), TimeSource::now());
  EXPECT_EQ(wakeHostTime(TimeSource::now()), wakeHostTime(TimeSource::now() - 1000));
  const int64_t later = TimeSource::now() + kNanosecondsPerSecond;
  EXPECT_EQ(wakeHostTime(later), later);
}

TEST(EarliestTime, IsNoneUntilOneIsKnown) {
  EarliestTime times;
  times.add(std::nullopt);
  EXPECT_EQ(times.time(), std::nullopt);
}

TEST(EarliestTime, IsTheEarliestOfThoseThatCome) {
  EarliestTime times;
  for (const std::optional<int64_t> time : {std::optional<int64_t>(5), std::optional<int64_t>(),
                                            std::optional<int64_t>(3), std::optional<int64_t>(4)}) {
    times.add(time);
  }
  EXPECT_EQ(times.time(), 3);
}

}  // namespace
}  // namespace zaffo::media
