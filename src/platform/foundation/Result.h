// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cassert>
#include <concepts>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/foundation/NSError.h"

namespace zaffo {

/// What an operation returns, or the error that kept it from returning it: always exactly one of
/// the two. A function returns either one; the result is used like std::expected<T, NSErrorPtr>. A
/// T that is a pointer is not null. Thread: that of T.
template <typename T>
class [[nodiscard]] Result {
 public:
  template <typename U>
  requires(std::convertible_to<U&&, T> && !std::convertible_to<U&&, NSErrorPtr> &&
           !std::same_as<std::remove_cvref_t<U>, Result>) Result(U&& value)
      : outcome_(std::in_place_index<0>, std::forward<U>(value)) {}
  /// `error` must not be null.
  Result(NSErrorPtr error) : outcome_(std::in_place_index<1>, std::move(error)) {
    assert(std::get<1>(outcome_));
  }

  [[nodiscard]] explicit operator bool() const { return outcome_.index() == 0; }
  /// The value; may be used only when there is one.
  [[nodiscard]] T& operator*() & { return *value(); }
  [[nodiscard]] const T& operator*() const& { return *value(); }
  [[nodiscard]] T&& operator*() && { return std::move(*value()); }
  [[nodiscard]] T* operator->() { return value(); }
  [[nodiscard]] const T* operator->() const { return value(); }
  /// The value, or `other` in place of an error that does not matter.
  [[nodiscard]] T valueOr(T other) && { return *this ? std::move(*value()) : std::move(other); }

  /// Why there is no value; null when there is one.
  [[nodiscard]] NSErrorPtr error() const { return *this ? nullptr : std::get<1>(outcome_); }

 private:
  [[nodiscard]] T* value() {
    assert(*this);
    return std::get_if<0>(&outcome_);
  }
  [[nodiscard]] const T* value() const {
    assert(*this);
    return std::get_if<0>(&outcome_);
  }

  std::variant<T, NSErrorPtr> outcome_;
};

}  // namespace zaffo
