// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// A queue as busy as a test wants it: it keeps its blocks until runAll(). Thread: any puts blocks
/// in; the rest is the test's.
class HeldQueue final : public DispatchQueue {
 public:
  void async(DispatchBlock block) override {
    const std::lock_guard lock(blocksMutex_);
    blocks_.push_back(std::move(block));
  }
  [[nodiscard]] const std::string& label() const override { return label_; }
  void setSpecific(const void* key, void* context) override { specifics_[key] = context; }
  [[nodiscard]] void* specific(const void* key) const override {
    const auto entry = specifics_.find(key);
    return entry == specifics_.end() ? nullptr : entry->second;
  }
  [[nodiscard]] bool isCurrent() const override { return isRunning_; }

  [[nodiscard]] size_t waiting() const {
    const std::lock_guard lock(blocksMutex_);
    return blocks_.size();
  }

  void runAll() {
    isRunning_ = true;
    while (const DispatchBlock block = takeFirst()) block();
    isRunning_ = false;
  }

 private:
  DispatchBlock takeFirst() {
    const std::lock_guard lock(blocksMutex_);
    if (blocks_.empty()) return nullptr;
    DispatchBlock block = std::move(blocks_.front());
    blocks_.pop_front();
    return block;
  }

  const std::string label_ = "held";
  mutable std::mutex blocksMutex_;
  std::deque<DispatchBlock> blocks_;
  std::map<const void*, void*> specifics_;
  bool isRunning_ = false;
};

}  // namespace zaffo
