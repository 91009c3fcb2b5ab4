// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <vector>

namespace zaffo {

/// An integer of any size, by schoolbook arithmetic: what results are judged by. Knows nothing of
/// the code under test.
class BigInteger {
 public:
  BigInteger(int64_t value) : negative_(value < 0) {  // NOLINT: a number is a number
    uint64_t magnitude = static_cast<uint64_t>(value);
    if (negative_) magnitude = 0 - magnitude;
    for (; magnitude != 0; magnitude >>= 32) digits_.push_back(static_cast<uint32_t>(magnitude));
  }

  /// 2^power.
  static BigInteger powerOfTwo(int power) {
    BigInteger result(1);
    for (int i = 0; i < power; ++i) result = result + result;
    return result;
  }

  BigInteger abs() const { return withSign(digits_, false); }
  BigInteger operator-() const { return withSign(digits_, !negative_); }

  friend BigInteger operator+(const BigInteger& a, const BigInteger& b) {
    if (a.negative_ == b.negative_) return withSign(sum(a.digits_, b.digits_), a.negative_);
    const auto order = compareDigits(a.digits_, b.digits_);
    if (order < 0) return withSign(difference(b.digits_, a.digits_), b.negative_);
    return withSign(difference(a.digits_, b.digits_), a.negative_);
  }
  friend BigInteger operator-(const BigInteger& a, const BigInteger& b) { return a + -b; }

  friend BigInteger operator*(const BigInteger& a, const BigInteger& b) {
    Digits digits(a.digits_.size() + b.digits_.size(), 0);
    for (std::size_t i = 0; i < a.digits_.size(); ++i) {
      uint64_t carry = 0;
      for (std::size_t j = 0; j < b.digits_.size(); ++j) {
        carry += digits[i + j] + uint64_t{a.digits_[i]} * b.digits_[j];
        digits[i + j] = static_cast<uint32_t>(carry);
        carry >>= 32;
      }
      digits[i + b.digits_.size()] = static_cast<uint32_t>(carry);
    }
    return withSign(digits, a.negative_ != b.negative_);
  }

  friend std::strong_ordering operator<=>(const BigInteger& a, const BigInteger& b) {
    if (a.negative_ != b.negative_) {
      return a.negative_ ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    return a.negative_ ? compareDigits(b.digits_, a.digits_) : compareDigits(a.digits_, b.digits_);
  }
  friend bool operator==(const BigInteger& a, const BigInteger& b) { return (a <=> b) == 0; }

 private:
  using Digits = std::vector<uint32_t>;  // lowest first, no zeros at the end

  static BigInteger withSign(Digits digits, bool negative) {
    BigInteger result(0);
    while (!digits.empty() && digits.back() == 0) digits.pop_back();
    result.negative_ = negative && !digits.empty();
    result.digits_ = std::move(digits);
    return result;
  }

  static std::strong_ordering compareDigits(const Digits& a, const Digits& b) {
    if (a.size() != b.size()) return a.size() <=> b.size();
    for (std::size_t i = a.size(); i-- > 0;) {
      if (a[i] != b[i]) return a[i] <=> b[i];
    }
    return std::strong_ordering::equal;
  }

  static Digits sum(const Digits& a, const Digits& b) {
    Digits digits;
    uint64_t carry = 0;
    for (std::size_t i = 0; i < std::max(a.size(), b.size()) || carry != 0; ++i) {
      carry += uint64_t{i < a.size() ? a[i] : 0} + (i < b.size() ? b[i] : 0);
      digits.push_back(static_cast<uint32_t>(carry));
      carry >>= 32;
    }
    return digits;
  }

  static Digits difference(const Digits& a, const Digits& b) {  // a >= b
    Digits digits;
    int64_t borrow = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
      int64_t digit = int64_t{a[i]} - (i < b.size() ? b[i] : 0) - borrow;
      borrow = digit < 0 ? 1 : 0;
      if (digit < 0) digit += int64_t{1} << 32;
      digits.push_back(static_cast<uint32_t>(digit));
    }
    return digits;
  }

  bool negative_ = false;
  Digits digits_;
};

}  // namespace zaffo
