// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"

namespace zaffo {

/// Which picture ought to be on show, and from when on, in nanoseconds after the first one.
struct ExpectedPicture {
  std::optional<int> number;
  int64_t from = 0;
};

/// A recording of what is on show while time is moved on: of numbered pictures, wherever they are
/// looked at (a player's output, a layer, a window's bitmap).
///
///     PictureLog log(time, [&] { return frameNumber(layer); });
///     log.advance(10 * kNanosecondsPerSecond, 2 * kNanosecondsPerMillisecond);
///     log.expect(pictures, startOfMediaTime);
class PictureLog {
 public:
  struct Entry {
    std::optional<int> number;
    int64_t from = 0;  ///< when it was seen first, by the clock of the test
  };

  PictureLog(ManualTime& time, std::function<std::optional<int>()> shown)
      : time_(time), shown_(std::move(shown)) {}

  /// Moves time on by `span`, and looks after every `step`.
  void advance(int64_t span, int64_t step) {
    step_ = step;
    for (int64_t passed = 0; passed < span; passed += step) {
      look();
      time_.advance(step);
    }
    look();
  }

  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

  /// Fails at the first picture of those recorded that is not the one expected, or did not come
  /// when it should have, to the step. Two expected pictures of one number in a row count as one.
  /// `start`: when the first one is expected, by the clock of the test.
  void expect(const std::vector<ExpectedPicture>& pictures, int64_t start) const {
    std::vector<ExpectedPicture> expected;
    for (const ExpectedPicture& picture : pictures) {
      if (expected.empty() || expected.back().number != picture.number) expected.push_back(picture);
    }
    ASSERT_GT(entries_.size(), 1u);
    ASSERT_LE(entries_.size(), expected.size());
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      ASSERT_EQ(entries_[i].number, expected[i].number) << "picture " << i;
      if (i == 0) continue;  // on show before it moves
      const int64_t late = entries_[i].from - start - expected[i].from;
      ASSERT_GE(late, -kNanosecondsPerMillisecond / 10) << "picture " << i;
      ASSERT_LE(late, step_ + kNanosecondsPerMillisecond / 10) << "picture " << i;
    }
  }

 private:
  void look() {
    const std::optional<int> number = shown_();
    if (!entries_.empty() && entries_.back().number == number) return;
    entries_.push_back({number, time_.nanoseconds()});
  }

  ManualTime& time_;
  const std::function<std::optional<int>()> shown_;
  int64_t step_ = 0;
  std::vector<Entry> entries_;
};

}  // namespace zaffo
