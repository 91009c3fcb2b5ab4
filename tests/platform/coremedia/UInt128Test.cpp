// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/UInt128.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/coremedia/BigInteger.h"

namespace zaffo {
namespace {

constexpr uint64_t kAllOnes = ~uint64_t{0};

BigInteger big(uint64_t x) {
  return BigInteger(static_cast<int64_t>(x >> 32)) * BigInteger::powerOfTwo(32) +
         BigInteger(static_cast<int64_t>(x & 0xffffffffu));
}
BigInteger big(UInt128 x) {
  return big(x.high) * BigInteger::powerOfTwo(64) + big(x.low);
}

class UInt128Test : public testing::Test {
 protected:
  /// Numbers of every size, and those around powers of two.
  uint64_t any() {
    const uint64_t x = random_() >> (random_() % 64);
    return random_() % 4 == 0 ? (uint64_t{1} << (random_() % 64)) - random_() % 2 : x;
  }
  std::mt19937_64 random_{20};
};

TEST_F(UInt128Test, MultipliesWithoutLosingBits) {
  EXPECT_EQ(multiplyFull(kAllOnes, kAllOnes), (UInt128{kAllOnes - 1, 1}));
  for (int i = 0; i < 500; ++i) {
    const uint64_t a = any(), b = any();
    ASSERT_EQ(big(multiplyFull(a, b)), big(a) * big(b)) << a << " * " << b;
  }
}

TEST_F(UInt128Test, DividesWithRemainder) {
  for (int i = 0; i < 500; ++i) {
    const UInt128 x{any(), any()};
    const auto divisor = static_cast<uint32_t>(any() | 1);
    const UInt128Division division = divide(x, divisor);
    ASSERT_LT(division.remainder, divisor);
    ASSERT_EQ(big(division.quotient) * big(divisor) + big(division.remainder), big(x));
  }
}

TEST_F(UInt128Test, ShiftsRightToTheNearest) {
  for (int i = 0; i < 500; ++i) {
    const UInt128 x{any(), any()};
    const int bits = static_cast<int>(random_() % 129);
    const BigInteger unit = BigInteger::powerOfTwo(bits);
    const BigInteger twiceError = (big(shiftRightRounding(x, bits)) * unit - big(x)) * 2;
    ASSERT_LE(twiceError, unit) << bits;
    ASSERT_GT(twiceError, -unit) << bits;
  }
  EXPECT_EQ(shiftRightRounding({kAllOnes, kAllOnes}, 129), UInt128{});
  EXPECT_EQ(shiftRightRounding({kAllOnes, kAllOnes}, 1), (UInt128{uint64_t{1} << 63, 0}));
}

TEST_F(UInt128Test, ShiftsLeft) {
  for (int bits = 0; bits < 128; ++bits) {
    EXPECT_EQ(big(shiftLeft({0, 1}, bits)), BigInteger::powerOfTwo(bits));
    EXPECT_EQ(bitWidth(shiftLeft({0, 1}, bits)), bits + 1);
  }
  EXPECT_EQ(shiftLeft({0, kAllOnes}, 4), (UInt128{15, kAllOnes - 15}));
  EXPECT_EQ(bitWidth({}), 0);
}

TEST_F(UInt128Test, MulDivKeepsQuotientAndRemainder) {
  for (int i = 0; i < 500; ++i) {
    const uint64_t divisor = std::max<uint64_t>(any() >> 1, 1);
    const uint64_t a = any() % divisor;
    const auto b = static_cast<uint32_t>(any());
    const MulDiv result = mulDiv(a, b, divisor);
    ASSERT_LT(result.remainder, divisor);
    ASSERT_EQ(big(result.quotient) * big(divisor) + big(result.remainder), big(a) * big(b));
  }
}

}  // namespace
}  // namespace zaffo
