#pragma once

#include <cstdint>
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

/// A value that tells its observers when it is set. Thread: any; observers run on the setter's
/// thread, after the change, with no lock held.
template <typename T>
class ObservableProperty {
 public:
  using Observer = std::function<void(const T& oldValue, const T& newValue)>;

  explicit ObservableProperty(T initial = T{}) : state_(std::make_shared<State>()) {
    state_->value = std::move(initial);
  }

  [[nodiscard]] T get() const {
    MutexLock lock(state_->valueMutex);
    return state_->value;
  }

  void set(T newValue) {
    T oldValue;
    std::vector<std::shared_ptr<const Observer>> observers;
    {
      MutexLock lock(state_->valueMutex);
      oldValue = std::exchange(state_->value, newValue);
      for (const auto& entry : state_->observers) observers.push_back(entry.second);
    }
    for (const auto& observer : observers) (*observer)(oldValue, newValue);
  }

  /// Calls `observer` after each set() until the returned observation ends.
  [[nodiscard]] KeyValueObservation observe(Observer observer) {
    MutexLock lock(state_->valueMutex);
    const uint64_t id = state_->nextId++;
    state_->observers.emplace_back(id, std::make_shared<const Observer>(std::move(observer)));
    return KeyValueObservation([weakState = std::weak_ptr<State>(state_), id] {
      if (const auto state = weakState.lock()) state->remove(id);
    });
  }

 private:
  struct State {
    Mutex valueMutex;
    T value ZAFFO_GUARDED_BY(valueMutex){};
    uint64_t nextId ZAFFO_GUARDED_BY(valueMutex) = 0;
    std::vector<std::pair<uint64_t, std::shared_ptr<const Observer>>> observers
        ZAFFO_GUARDED_BY(valueMutex);

    void remove(uint64_t id) {
      MutexLock lock(valueMutex);
      std::erase_if(observers, [id](const auto& entry) { return entry.first == id; });
    }
  };

  std::shared_ptr<State> state_;
};

}  // namespace zaffo
