// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Mutex.h"

namespace zaffo {

/// Keeps an observation of an ObservableProperty alive; destroying or resetting it ends it.
class KeyValueObservation {
 public:
  KeyValueObservation() = default;
  explicit KeyValueObservation(std::function<void()> remove) : remove_(std::move(remove)) {}
  KeyValueObservation(KeyValueObservation&& other) noexcept
      : remove_(std::exchange(other.remove_, nullptr)) {}
  KeyValueObservation& operator=(KeyValueObservation&& other) noexcept {
    if (this != &other) {
      invalidate();
      remove_ = std::exchange(other.remove_, nullptr);
    }
    return *this;
  }
  ~KeyValueObservation() { invalidate(); }

  /// Ends the observation; further calls do nothing.
  void invalidate() {
    if (auto remove = std::exchange(remove_, nullptr)) remove();
  }

 private:
  std::function<void()> remove_;
};

/// A value that notifies its observers when it is set. Thread: any; observers run on the setter's
/// thread, after the change, in order of registration, with no lock held. An observation that ended
/// on the setter's thread is no longer called, even by a set() in progress.
template <typename T>
class ObservableProperty {
 public:
  using Observer = std::function<void(const T& oldValue, const T& newValue)>;

  explicit ObservableProperty(T initial = T{}) : state_(std::make_shared<State>()) {
    MutexLock lock(state_->valueMutex);
    state_->value = std::move(initial);
  }

  [[nodiscard]] T get() const {
    MutexLock lock(state_->valueMutex);
    return state_->value;
  }

  /// Stores `newValue` and notifies every observer, even if it equals the old one.
  void set(T newValue) {
    T oldValue;
    std::vector<std::shared_ptr<Entry>> told;
    {
      MutexLock lock(state_->valueMutex);
      oldValue = std::exchange(state_->value, newValue);
      told = state_->entries;
    }
    for (const auto& entry : told) {
      if (!entry->ended) entry->observer(oldValue, newValue);
    }
  }

  /// Calls `observer` after each set() until the returned observation ends. The observation may
  /// outlive the property.
  [[nodiscard]] KeyValueObservation observe(Observer observer) {
    auto entry = std::make_shared<Entry>(std::move(observer));
    const std::weak_ptr<Entry> weakEntry = entry;
    MutexLock lock(state_->valueMutex);
    state_->entries.push_back(std::move(entry));
    return KeyValueObservation([weakState = std::weak_ptr<State>(state_), weakEntry] {
      const auto state = weakState.lock();
      const auto ending = weakEntry.lock();
      if (state && ending) state->remove(ending);
    });
  }

 private:
  struct Entry {
    explicit Entry(Observer told) : observer(std::move(told)) {}
    const Observer observer;
    std::atomic<bool> ended{false};
  };

  struct State {
    Mutex valueMutex;
    T value ZAFFO_GUARDED_BY(valueMutex){};
    std::vector<std::shared_ptr<Entry>> entries ZAFFO_GUARDED_BY(valueMutex);

    void remove(const std::shared_ptr<Entry>& entry) {
      entry->ended = true;
      MutexLock lock(valueMutex);
      std::erase(entries, entry);
    }
  };

  std::shared_ptr<State> state_;
};

}  // namespace zaffo
