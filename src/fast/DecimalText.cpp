// SPDX-License-Identifier: Apache-2.0
#include "fast/DecimalText.h"

#include <array>
#include <charconv>
#include <cmath>

namespace zaffo {

namespace {

/// Outside these bounds plain digits would be long, or would claim a precision that is not there.
constexpr double kSmallestPlain = 1e-4;
constexpr double kLargestPlain = 0x1p54;

}  // namespace

std::string decimalText(double value) {
  if (std::isnan(value)) return "nan";  // whatever its sign
  const double size = std::abs(value);
  const bool isPlain = size == 0 || (size >= kSmallestPlain && size < kLargestPlain);
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                 isPlain ? std::chars_format::fixed : std::chars_format::scientific)
                       .ptr;
  std::string result(text.data(), end);
  if (isPlain && result.find('.') == std::string::npos) result += ".0";
  return result;
}

}  // namespace zaffo
