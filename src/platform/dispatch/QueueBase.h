// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// What all queues have in common: a label, values by key, and knowing whether the caller runs on
/// them.
class QueueBase : public DispatchQueue {
 public:
  explicit QueueBase(std::string label) : label_(std::move(label)) {}

  [[nodiscard]] const std::string& label() const final { return label_; }
  void setSpecific(const void* key, void* context) final;
  [[nodiscard]] void* specific(const void* key) const final;
  [[nodiscard]] bool isCurrent() const final;

  /// The queue whose block runs on the calling thread; null outside of blocks.
  [[nodiscard]] static const QueueBase* current();

 protected:
  /// Makes a queue the current one of the calling thread for a scope.
  class CurrentScope {
   public:
    explicit CurrentScope(const QueueBase& queue);
    ~CurrentScope();
    CurrentScope(const CurrentScope&) = delete;
    CurrentScope& operator=(const CurrentScope&) = delete;

   private:
    const QueueBase* const outer_;
  };

 private:
  const std::string label_;
  mutable Mutex specificsMutex_;
  std::vector<std::pair<const void*, void*>> specifics_ ZAFFO_GUARDED_BY(specificsMutex_);
};

}  // namespace zaffo
