// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>

#include "platform/Mutex.h"

namespace zaffo {

/// Keeps as many workers at work as there are places, however many of them wait for the outside
/// world. A worker whose wait begins leaves its place to a spare one, parked or new; one whose wait
/// ends goes on at once, and the next that has finished a piece of work parks in its stead. A
/// worker that was parked for long ends. Beyond the bound of spare ones a place stays empty.
/// Thread: any.
///
///                 another's wait begins
///       parked ────────────────────────> at work ───── wait begins ────> waiting
///      │   ^                              │   ^                             │
///      │   └── between two pieces, when ──┘   └───────── wait ends ─────────┘
///      v       there is one too many
///     ended, after a while
class SpareWorkers {
 public:
  /// `start` starts one more worker, and says whether it could.
  SpareWorkers(int most, std::chrono::milliseconds parkedLifetime, std::function<bool()> start)
      : most_(most), parkedLifetime_(parkedLifetime), start_(std::move(start)) {}

  /// The calling worker begins to wait, and has waited.
  void beginWait();
  void endWait();

  /// For a worker between two pieces of work: parks it while there is one too many. False when it
  /// is to end.
  [[nodiscard]] bool mayGoOn();
  /// Lets those that are parked end.
  void stop();

  /// Workers that wait now.
  [[nodiscard]] int waiting() const { return waiting_.load(std::memory_order_relaxed); }
  /// Spare workers there are, whatever they do.
  [[nodiscard]] int spare() const;

 private:
  [[nodiscard]] bool fillPlace();
  void leavePlaceEmpty();
  [[nodiscard]] bool park();

  const int most_;
  const std::chrono::milliseconds parkedLifetime_;
  const std::function<bool()> start_;

  std::atomic<int> waiting_{0};
  std::atomic<int> tooMany_{0};  // changed under the mutex; to be parked
  mutable Mutex placesMutex_;
  std::condition_variable_any called_;
  int spare_ ZAFFO_GUARDED_BY(placesMutex_) = 0;
  int parked_ ZAFFO_GUARDED_BY(placesMutex_) = 0;
  int calls_ ZAFFO_GUARDED_BY(placesMutex_) = 0;  // for parked ones that have not heard them yet
  int emptyPlaces_ ZAFFO_GUARDED_BY(placesMutex_) = 0;
  bool stopped_ ZAFFO_GUARDED_BY(placesMutex_) = false;
};

}  // namespace zaffo
