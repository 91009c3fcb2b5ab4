// SPDX-License-Identifier: Apache-2.0
#include "fast/DecimalText.h"

#include <gtest/gtest.h>

#include <limits>

namespace zaffo {
namespace {

TEST(DecimalText, TellsAWholeNumberFromAnInteger) {
  EXPECT_EQ(decimalText(0), "0.0");
  EXPECT_EQ(decimalText(-0.0), "-0.0");
  EXPECT_EQ(decimalText(1), "1.0");
  EXPECT_EQ(decimalText(-2), "-2.0");
  EXPECT_EQ(decimalText(100000), "100000.0");
}

TEST(DecimalText, IsTheShortestTextThatReadsBackTheSame) {
  EXPECT_EQ(decimalText(1.5), "1.5");
  EXPECT_EQ(decimalText(0.1), "0.1");
  EXPECT_EQ(decimalText(1.0 / 24), "0.041666666666666664");
  EXPECT_EQ(decimalText(0.0001), "0.0001");
}

TEST(DecimalText, UsesAnExponentForVerySmallAndVeryLargeNumbers) {
  EXPECT_EQ(decimalText(0.00001), "1e-05");
  EXPECT_EQ(decimalText(9007199254740992.0), "9007199254740992.0");
  EXPECT_EQ(decimalText(0x1p54), "1.8014398509481984e+16");
  EXPECT_EQ(decimalText(0x1p54 - 2), "18014398509481982.0");
  EXPECT_EQ(decimalText(1e17), "1e+17");
}

TEST(DecimalText, NamesWhatIsNoNumber) {
  EXPECT_EQ(decimalText(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(decimalText(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_EQ(decimalText(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(decimalText(-std::numeric_limits<double>::quiet_NaN()), "nan");
}

}  // namespace
}  // namespace zaffo
