// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace zaffo {

/// The few operations on 128 bits that exact time arithmetic needs, in portable C++. Thread: any.
struct UInt128 {
  uint64_t high = 0;
  uint64_t low = 0;

  bool operator==(const UInt128&) const = default;
};

/// The whole product.
[[nodiscard]] UInt128 multiplyFull(uint64_t a, uint64_t b);

/// x / 2^bits, rounded to nearest, halves up; 0 for any `bits` above 128.
[[nodiscard]] UInt128 shiftRightRounding(UInt128 x, int bits);

/// x * 2^bits. The caller sees to it that no bit is lost; `bits` is 0 to 127.
[[nodiscard]] UInt128 shiftLeft(UInt128 x, int bits);

/// Number of bits up to and including the highest one that is set; 0 for 0.
[[nodiscard]] int bitWidth(UInt128 x);

struct UInt128Division {
  UInt128 quotient;
  uint32_t remainder = 0;
};
/// `divisor` is not 0.
[[nodiscard]] UInt128Division divide(UInt128 x, uint32_t divisor);

struct MulDiv {
  uint64_t quotient = 0;
  uint64_t remainder = 0;
};
/// a * b / divisor without overflow, for a < divisor <= 2^63.
[[nodiscard]] MulDiv mulDiv(uint64_t a, uint32_t b, uint64_t divisor);

}  // namespace zaffo
