// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SeekRequest.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <vector>

namespace zaffo::media {
namespace {

CMTime seconds(int64_t value) {
  return CMTimeMake(value, 1);
}

class SeekRequestTest : public testing::Test {
 protected:
  std::unique_ptr<SeekRequest> request(CMTime target, CMTime before = kCMTimeZero,
                                       CMTime after = kCMTimeZero) {
    return std::make_unique<SeekRequest>(target, before, after,
                                         [this](bool finished) { ends_.push_back(finished); });
  }

  std::vector<bool> ends_;
};

TEST_F(SeekRequestTest, ReachesAsFarAsItsTolerances) {
  struct Row {
    CMTime before, after, earliest, latest;
  };
  const Row rows[] = {
      {kCMTimeZero, kCMTimeZero, seconds(10), seconds(10)},
      {seconds(2), seconds(3), seconds(8), seconds(13)},
      {seconds(-2), seconds(-3), seconds(8), seconds(13)},
      {kCMTimePositiveInfinity, kCMTimePositiveInfinity, kCMTimeNegativeInfinity,
       kCMTimePositiveInfinity},
      {kCMTimeInvalid, kCMTimeIndefinite, seconds(10), seconds(10)},
      {kCMTimeNegativeInfinity, kCMTimeNegativeInfinity, seconds(10), seconds(10)},
  };
  for (const Row& row : rows) {
    const auto seek = request(seconds(10), row.before, row.after);
    EXPECT_EQ(seek->target(), seconds(10));
    EXPECT_EQ(seek->earliest(), row.earliest);
    EXPECT_EQ(seek->latest(), row.latest);
  }
}

TEST_F(SeekRequestTest, ThePositionIsTheFramesOwnTimeWhereThatWillDo) {
  const auto seek = request(seconds(10), seconds(2), seconds(3));
  EXPECT_EQ(seek->positionWith(seconds(8)), seconds(8));
  EXPECT_EQ(seek->positionWith(seconds(13)), seconds(13));
}

TEST_F(SeekRequestTest, ThePositionIsTheTargetWhereTheFrameLiesOutside) {
  const auto seek = request(seconds(10), seconds(2), seconds(3));
  EXPECT_EQ(seek->positionWith(seconds(7)), seconds(10)) << "the frame lasts until then";
  EXPECT_EQ(seek->positionWith(seconds(14)), seconds(10));
  EXPECT_EQ(seek->positionWith(kCMTimeInvalid), seconds(10)) << "there is no picture";
}

TEST_F(SeekRequestTest, NoPositionLiesBeforeTheBeginning) {
  const auto seek = request(kCMTimeZero, seconds(5), kCMTimeZero);
  EXPECT_EQ(seek->positionWith(seconds(-1)), kCMTimeZero);
}

TEST_F(SeekRequestTest, EndsOnceAsItEndedFirst) {
  for (const bool finished : {true, false}) {
    ends_.clear();
    auto seek = request(seconds(1));
    EXPECT_TRUE(ends_.empty());
    seek->end(finished);
    seek->end(!finished);
    seek.reset();
    EXPECT_EQ(ends_, std::vector{finished});
  }
}

TEST_F(SeekRequestTest, OneThatIsLetGoOfWasNotFinished) {
  request(seconds(1)).reset();
  EXPECT_EQ(ends_, std::vector{false});
}

TEST_F(SeekRequestTest, ACompletionMayEndItAgain) {
  std::unique_ptr<SeekRequest> seek;
  int calls = 0;
  seek = std::make_unique<SeekRequest>(kCMTimeZero, kCMTimeZero, kCMTimeZero, [&](bool) {
    ++calls;
    seek->end(true);
  });
  seek->end(false);
  EXPECT_EQ(calls, 1);
}

TEST_F(SeekRequestTest, NobodyNeedsToHearOfIt) {
  SeekRequest(kCMTimeZero, kCMTimeZero, kCMTimeZero, nullptr).end(true);
}

}  // namespace
}  // namespace zaffo::media
