// SPDX-License-Identifier: Apache-2.0

// Seeks that follow one another before what the one before asked for is decoded, as somebody makes
// them who drags a slider over a clip with few sync samples.

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/media/playback/PlaybackFixture.h"

namespace zaffo::media {
namespace {

constexpr int kGroup = 12;  // pictures, of which the last ones take long to decode

class PlaybackScrubTest : public PlaybackFixture {
 protected:
  /// A picture that came on show, and how many samples had been read for it.
  struct Shown {
    int number;
    int samples;
    bool operator==(const Shown&) const = default;
  };

  PlaybackScrubTest() {
    open({.options = "g=12;bf=0", .count = 4 * kGroup, .size = 960}, 0);
    pictureChanged_ = [this] {
      const int number = shown().value_or(-1);
      const std::lock_guard lock(mutex_);
      shown_.push_back({number, std::exchange(samples_, 0)});
    };
    source_->setAskedHandler([this](int) {
      int count = 0;
      {
        const std::lock_guard lock(mutex_);
        count = ++samples_;
      }
      if (count == 1 && !next_.empty())
        seekTo(std::exchange(next_, {next_.begin() + 1, next_.end()}).front());
    });
  }
  void seekTo(int number) {
    playback_->seek(frames(number), kCMTimeZero, kCMTimeZero, [this](bool finished) {
      const std::lock_guard lock(mutex_);
      finished_.push_back(finished);
    });
  }
  static int lastOf(int group) { return kGroup * (group + 1) - 1; }

  std::mutex mutex_;
  std::vector<int> next_;  ///< where to seek to as soon as the seek before has begun to read
  int samples_ = 0;
  std::vector<Shown> shown_;
  std::vector<bool> finished_;
};

TEST_F(PlaybackScrubTest, EachSeekShowsTheFrameOfItsSyncSampleHavingDecodedNoOther) {
  for (int i = 0; i < 8; ++i) next_.push_back(lastOf((i + 2) % 4));
  seekTo(lastOf(1));
  time_.settle();
  std::vector<Shown> expected;
  for (int i = 0; i < 8; ++i) expected.push_back({kGroup * ((i + 1) % 4), 1});
  ASSERT_EQ(shown_.size(), expected.size() + 1);
  const Shown last = shown_.back();
  shown_.pop_back();
  EXPECT_EQ(shown_, expected);
  EXPECT_EQ(last.number, lastOf(1)) << "the last one shows what it was to show, and at once";
  EXPECT_EQ(seconds(), CMTimeGetSeconds(frames(lastOf(1))));
  std::vector<bool> finished(8, false);
  finished.push_back(true);
  EXPECT_EQ(finished_, finished);
}

TEST_F(PlaybackScrubTest, OneThatTakesLongShowsThatFrameMeanwhile) {
  source_->let(3);
  seekTo(lastOf(2));
  time_.settle();
  EXPECT_TRUE(shown_.empty()) << "it may be done soon";
  time_.advance(20 * kNanosecondsPerMillisecond);
  ASSERT_EQ(shown_.size(), 1U);
  EXPECT_EQ(shown_.front().number, 2 * kGroup);
  EXPECT_TRUE(finished_.empty());
  EXPECT_EQ(seconds(), 0) << "it is not there yet";
  source_->let(1'000'000);
  time_.settle();
  ASSERT_EQ(shown_.size(), 2U);
  EXPECT_EQ(shown_.back().number, lastOf(2));
  EXPECT_EQ(finished_, std::vector{true});
  setRate(1);
  time_.advance(kFrame);
  EXPECT_EQ(shown(), lastOf(2) + 1) << "and goes on from there";
}

TEST_F(PlaybackScrubTest, OneThatIsDoneSoonShowsNothingElse) {
  for (const int number : {lastOf(2), lastOf(0), lastOf(3), kGroup, kGroup + 3}) {
    shown_.clear();
    seekTo(number);
    time_.settle();
    ASSERT_EQ(shown_.size(), 1U);
    EXPECT_EQ(shown_.front().number, number);
  }
}

TEST_F(PlaybackScrubTest, WhatIsCloseByIsNotMadeTwice) {
  seekTo(kGroup + 2);
  time_.settle();
  ASSERT_EQ(shown_.size(), 1U);
  EXPECT_LE(shown_.front().samples, 7);
}

}  // namespace
}  // namespace zaffo::media
