// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace zaffo {

/// Deadlines and what is due at them, earliest first, equal ones in order of insertion. Cancelled
/// items stay where they are until they surface or become too many. Not locked.
template <typename Timer>
class TimerHeap {
 public:
  struct Item {
    int64_t deadline;
    uint64_t order;
    std::shared_ptr<Timer> timer;
  };

  void push(int64_t deadline, std::shared_ptr<Timer> timer) {
    items_.push_back({deadline, nextOrder_++, std::move(timer)});
    std::push_heap(items_.begin(), items_.end(), later);
  }

  /// The earliest deadline; no value when empty.
  [[nodiscard]] std::optional<int64_t> earliest() const {
    return items_.empty() ? std::nullopt : std::optional(items_.front().deadline);
  }

  /// Removes and returns the earliest item; there must be one.
  [[nodiscard]] Item pop() {
    std::pop_heap(items_.begin(), items_.end(), later);
    Item item = std::move(items_.back());
    items_.pop_back();
    return item;
  }

  /// Removes everything that `isDead`.
  template <typename Predicate>
  [[nodiscard]] std::vector<Item> sweep(Predicate isDead) {
    const auto middle = std::partition(items_.begin(), items_.end(),
                                       [&](const Item& item) { return !isDead(*item.timer); });
    std::vector<Item> swept(std::make_move_iterator(middle), std::make_move_iterator(items_.end()));
    items_.erase(middle, items_.end());
    std::make_heap(items_.begin(), items_.end(), later);
    return swept;
  }

  [[nodiscard]] size_t size() const { return items_.size(); }

 private:
  static bool later(const Item& a, const Item& b) {
    return a.deadline != b.deadline ? a.deadline > b.deadline : a.order > b.order;
  }

  std::vector<Item> items_;
  uint64_t nextOrder_ = 0;
};

}  // namespace zaffo
