// SPDX-License-Identifier: Apache-2.0

// CMTime's arithmetic against exact rationals, over values of every size.
#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <random>

#include "platform/coremedia/BigInteger.h"
#include "platform/coremedia/CMTime.h"

namespace zaffo {
namespace {

constexpr int kRounds = 1000;
constexpr int64_t kMost = std::numeric_limits<int64_t>::max();

struct Fraction {
  BigInteger numerator;
  BigInteger denominator;  // positive
};

Fraction fraction(CMTime time) {
  return {time.value, time.timescale};
}
Fraction operator+(const Fraction& a, const Fraction& b) {
  return {a.numerator * b.denominator + b.numerator * a.denominator, a.denominator * b.denominator};
}
Fraction operator-(const Fraction& a) {
  return {-a.numerator, a.denominator};
}

bool fits(const Fraction& x, CMTimeScale timescale) {
  // |x| * timescale + 1/2 < 2^63, or <= for negative x, whose range has one more.
  const BigInteger ticksTwice = x.numerator.abs() * timescale * 2 + x.denominator;
  const BigInteger limit = BigInteger::powerOfTwo(64) * x.denominator;
  return ticksTwice < limit || (x.numerator < 0 && ticksTwice < limit + x.denominator * 2);
}

/// Checks `result` against `exact`, which was to be put at `timescale`.
void expectNearest(CMTime result, const Fraction& exact, CMTimeScale timescale, bool wasRounded) {
  CMTimeScale fitting = timescale;
  while (fitting > 0 && !fits(exact, fitting)) fitting /= 2;
  if (fitting == 0) {
    ASSERT_EQ(result, exact.numerator < 0 ? kCMTimeNegativeInfinity : kCMTimePositiveInfinity);
    return;
  }
  ASSERT_TRUE(CMTIME_IS_NUMERIC(result));
  ASSERT_EQ(result.timescale, fitting);
  const BigInteger error =
      (BigInteger(result.value) * exact.denominator - exact.numerator * fitting).abs();
  ASSERT_LE(error * 2, exact.denominator) << "not the nearest";
  ASSERT_EQ(CMTIME_HAS_BEEN_ROUNDED(result), wasRounded || error != 0);
  if (error * 2 == exact.denominator) {  // a tie goes away from zero
    const BigInteger magnitude = BigInteger(result.value).abs() * exact.denominator;
    ASSERT_GT(magnitude, exact.numerator.abs() * fitting);
  }
}

class CMTimeProperty : public testing::Test {
 protected:
  int64_t anyValue() {
    switch (random_() % 8) {
      case 0:
        return kMost - static_cast<int64_t>(random_() % 3);
      case 1:
        return std::numeric_limits<int64_t>::min() + static_cast<int64_t>(random_() % 3);
      case 2:
        return static_cast<int64_t>(random_() % 5) - 2;
      default:
        return static_cast<int64_t>(random_()) >> (random_() % 64);
    }
  }
  CMTimeScale anyTimescale() {
    static constexpr CMTimeScale kUsual[] = {
        1,     2,     24,        25,         30,
        600,   1000,  1001,      30000,      44100,
        48000, 90000, 1'000'000, 1000000000, kCMTimeMaxTimescale};
    if (random_() % 2 == 0) return kUsual[random_() % std::size(kUsual)];
    return 1 +
           static_cast<CMTimeScale>((random_() >> 33) >> (random_() % 31)) % kCMTimeMaxTimescale;
  }
  CMTime anyTime() {
    CMTime time = CMTimeMake(anyValue(), anyTimescale());
    if (random_() % 8 == 0) time.flags |= kCMTimeFlags_HasBeenRounded;
    return time;
  }
  std::mt19937_64 random_{7};
};

CMTimeScale commonTimescale(CMTime a, CMTime b) {
  const int64_t common = std::lcm<int64_t>(a.timescale, b.timescale);
  return static_cast<CMTimeScale>(std::min<int64_t>(common, kCMTimeMaxTimescale));
}

TEST_F(CMTimeProperty, SumsAreExactOrNearest) {
  for (int i = 0; i < kRounds; ++i) {
    const CMTime a = anyTime(), b = anyTime();
    SCOPED_TRACE(CMTimeDescription(a) + " + " + CMTimeDescription(b));
    const bool rounded = CMTIME_HAS_BEEN_ROUNDED(a) || CMTIME_HAS_BEEN_ROUNDED(b);
    ASSERT_NO_FATAL_FAILURE(
        expectNearest(CMTimeAdd(a, b), fraction(a) + fraction(b), commonTimescale(a, b), rounded));
    ASSERT_NO_FATAL_FAILURE(expectNearest(CMTimeSubtract(a, b), fraction(a) + -fraction(b),
                                          commonTimescale(a, b), rounded));
  }
}

TEST_F(CMTimeProperty, OrderIsThatOfTheFractions) {
  for (int i = 0; i < kRounds; ++i) {
    const CMTime a = anyTime();
    CMTime b = anyTime();
    if (i % 4 == 0) b = CMTimeConvertScale(a, anyTimescale());  // often equal, or nearly
    if (!CMTIME_IS_NUMERIC(b)) continue;
    const auto order = fraction(a).numerator * b.timescale <=> fraction(b).numerator * a.timescale;
    const int expected = order < 0 ? -1 : order > 0 ? 1 : 0;
    ASSERT_EQ(CMTimeCompare(a, b), expected) << CMTimeDescription(a) << CMTimeDescription(b);
    ASSERT_EQ(CMTimeCompare(b, a), -expected);
  }
}

TEST_F(CMTimeProperty, RatiosAreExactOrNearest) {
  for (int i = 0; i < kRounds; ++i) {
    const CMTime time = anyTime();
    const auto multiplier = static_cast<int32_t>(anyValue());
    auto divisor = static_cast<int32_t>(anyValue());
    if (divisor == 0) divisor = std::numeric_limits<int32_t>::min();
    SCOPED_TRACE(CMTimeDescription(time) + " * " + std::to_string(multiplier) + " / " +
                 std::to_string(divisor));
    const BigInteger sign = divisor < 0 ? -1 : 1;
    const Fraction exact{BigInteger(time.value) * multiplier * sign,
                         BigInteger(time.timescale) * BigInteger(divisor).abs()};
    const CMTime result = CMTimeMultiplyByRatio(time, multiplier, divisor);
    if (!CMTIME_IS_NUMERIC(result)) {
      ASSERT_NO_FATAL_FAILURE(expectNearest(result, exact, 1, false));
      continue;
    }
    // The timescale is the library's choice, but a rounded result is at the best there is.
    ASSERT_NO_FATAL_FAILURE(
        expectNearest(result, exact, result.timescale, CMTIME_HAS_BEEN_ROUNDED(time)));
    if (CMTIME_HAS_BEEN_ROUNDED(result) && !CMTIME_HAS_BEEN_ROUNDED(time) &&
        result.timescale < kCMTimeMaxTimescale / 2) {
      ASSERT_FALSE(fits(exact, result.timescale * 2 + 1));
    }
  }
}

TEST_F(CMTimeProperty, IntegerProductsKeepTheTimescaleAndAreExactWhereTheyFit) {
  for (int i = 0; i < kRounds; ++i) {
    const CMTime time = anyTime();
    const auto multiplier = static_cast<int32_t>(anyValue());
    SCOPED_TRACE(CMTimeDescription(time) + " * " + std::to_string(multiplier));
    ASSERT_NO_FATAL_FAILURE(expectNearest(CMTimeMultiply(time, multiplier),
                                          {BigInteger(time.value) * multiplier, time.timescale},
                                          time.timescale, CMTIME_HAS_BEEN_ROUNDED(time)));
  }
}

TEST_F(CMTimeProperty, ConversionsRoundAsTold) {
  using enum CMTimeRoundingMethod;
  for (int i = 0; i < kRounds; ++i) {
    const CMTime time = anyTime();
    const CMTimeScale scale = anyTimescale();
    const auto method = static_cast<CMTimeRoundingMethod>(1 + random_() % 6);
    SCOPED_TRACE(CMTimeDescription(time) + " to " + std::to_string(scale) + " by " +
                 std::to_string(static_cast<int>(method)));
    const CMTime result = CMTimeConvertScale(time, scale, method);
    if (!CMTIME_IS_NUMERIC(result)) {
      ASSERT_EQ(result, time.value < 0 ? kCMTimeNegativeInfinity : kCMTimePositiveInfinity);
      const BigInteger ticks = BigInteger(time.value).abs() * scale;
      ASSERT_GE(ticks + time.timescale, BigInteger::powerOfTwo(63) * time.timescale);
      continue;
    }
    ASSERT_EQ(result.timescale, scale);
    const BigInteger error =  // in units of 1 / (timescale * scale), at most one tick
        BigInteger(result.value) * time.timescale - BigInteger(time.value) * scale;
    ASSERT_LT(error.abs(), BigInteger(time.timescale));
    ASSERT_EQ(CMTIME_HAS_BEEN_ROUNDED(result), CMTIME_HAS_BEEN_ROUNDED(time) || error != 0);
    const bool negative = time.value < 0;
    const BigInteger outward = negative ? -error : error;
    switch (method) {
      case RoundHalfAwayFromZero:
        ASSERT_LE(error.abs() * 2, time.timescale);
        if (error.abs() * 2 == time.timescale) {
          ASSERT_GT(outward, 0);
        }
        break;
      case RoundTowardZero:
        ASSERT_LE(outward, 0);
        break;
      case RoundAwayFromZero:
        ASSERT_GE(outward, 0);
        break;
      case QuickTime:
        if (scale >= time.timescale) {
          ASSERT_GE(outward, 0);
        } else if (!negative || result.value != -1) {
          ASSERT_LE(outward, 0);
        }
        ASSERT_FALSE(negative && result.value == 0);
        break;
      case RoundTowardPositiveInfinity:
        ASSERT_GE(error, 0);
        break;
      case RoundTowardNegativeInfinity:
        ASSERT_LE(error, 0);
        break;
    }
  }
}

TEST_F(CMTimeProperty, ProductsWithDoublesAreNearest) {
  for (int i = 0; i < kRounds; ++i) {
    const CMTime time = anyTime();
    const int exponent = static_cast<int>(random_() % 80) - 60;
    const int64_t mantissa = static_cast<int64_t>(random_()) >> 12;
    const double multiplier = std::ldexp(static_cast<double>(mantissa), exponent);
    SCOPED_TRACE(CMTimeDescription(time) + " * " + std::to_string(multiplier));
    const CMTime result = CMTimeMultiplyByFloat64(time, multiplier);
    const BigInteger up = BigInteger::powerOfTwo(std::max(exponent, 0));
    const BigInteger down = BigInteger::powerOfTwo(std::max(-exponent, 0));
    const Fraction exact{BigInteger(time.value) * mantissa * up, down * time.timescale};
    if (!CMTIME_IS_NUMERIC(result)) {
      ASSERT_NO_FATAL_FAILURE(expectNearest(result, exact, 1, false));
      continue;
    }
    const BigInteger error =
        (BigInteger(result.value) * exact.denominator - exact.numerator * result.timescale).abs();
    // The second rounding of a value that had to be halved may cost another tick of the first.
    ASSERT_LE(error * 2,
              exact.denominator + exact.denominator * (result.timescale < time.timescale));
  }
}

TEST_F(CMTimeProperty, SecondsComeBackFromTheirTime) {
  for (int i = 0; i < kRounds; ++i) {
    const double seconds = std::ldexp(static_cast<double>(static_cast<int64_t>(random_()) >> 12),
                                      static_cast<int>(random_() % 40) - 60);
    const CMTimeScale scale = anyTimescale();
    const CMTime time = CMTimeMakeWithSeconds(seconds, scale);
    SCOPED_TRACE(CMTimeDescription(time));
    ASSERT_EQ(time.timescale, scale);
    const double back = CMTimeGetSeconds(time);
    ASSERT_NEAR(back, seconds, 0.5 / scale + std::fabs(seconds) * 1e-15);
    ASSERT_EQ(CMTIME_HAS_BEEN_ROUNDED(time), back != seconds);
  }
}

}  // namespace
}  // namespace zaffo
