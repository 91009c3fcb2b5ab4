// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/RenditionChoice.h"

#include <gtest/gtest.h>

namespace zaffo::streaming {
namespace {

const RenditionChoice kChoice({400'000, 1'000'000, 3'000'000, 6'000'000});

TEST(RenditionChoice, BeginsWithTheHighestThatFits) {
  struct Case {
    std::optional<double> throughput;
    std::size_t expected;
  };
  for (const Case& c :
       {Case{{}, 1}, Case{100'000, 0}, Case{571'000, 0}, Case{1'420'000, 0}, Case{1'430'000, 1},
        Case{4'280'000, 1}, Case{4'290'000, 2}, Case{8'600'000, 3}, Case{1e9, 3}}) {
    EXPECT_EQ(kChoice.first(c.throughput), c.expected) << c.throughput.value_or(0);
  }
}

TEST(RenditionChoice, GoesUpAndDownByThroughputAndWhatLiesAhead) {
  struct Case {
    std::size_t present;
    std::optional<double> throughput;
    double ahead;
    std::size_t expected;
  };
  for (const Case& c : {
           Case{1, {}, 0, 1},       // nothing is known
           Case{1, {}, 60, 1},      //
           Case{0, 1e7, 3.9, 0},    // up only with enough ahead
           Case{0, 1e7, 4, 3},      // and then at once
           Case{1, 4.2e6, 30, 1},   // not without a margin
           Case{1, 4.3e6, 30, 2},   //
           Case{2, 3.1e6, 7.9, 1},  // down where the margin is gone
           Case{2, 3.1e6, 8, 2},    // unless much lies ahead
           Case{2, 2.9e6, 60, 1},   // but never with less than it takes
           Case{3, 1e5, 60, 0},     //
           Case{2, 4.3e6, 0, 2},    // that fits
       }) {
    EXPECT_EQ(kChoice.next({c.present, c.throughput, c.ahead}), c.expected)
        << c.present << " at " << c.throughput.value_or(0) << " with " << c.ahead;
  }
}

TEST(RenditionChoice, OfOneThatIsIt) {
  const RenditionChoice one({0});
  EXPECT_EQ(one.first(1.0), 0U);
  EXPECT_EQ(one.next({0, 1.0, 0}), 0U);
}

}  // namespace
}  // namespace zaffo::streaming
