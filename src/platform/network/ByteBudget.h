// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Mutex.h"

namespace zaffo::network {

/// Shares the memory for remote bytes out among the resources that are read: each gets the same
/// part of what the process may hold, and no more than one may hold. What they leave of it a keeper
/// may fill with bytes that nobody reads. Thread: any.
class ByteBudget {
  struct State;

 public:
  static constexpr int64_t kOfProcess = int64_t{32} * 1024 * 1024;
  static constexpr int64_t kOfResource = int64_t{8} * 1024 * 1024;

  /// One that holds bytes which are read. Thread: any.
  class Holder {
   public:
    virtual ~Holder() = default;
    /// It may hold so many from now on.
    virtual void setByteBound(int64_t bound) = 0;
  };

  /// Who has bytes that nobody reads. Thread: any.
  class Keeper {
   public:
    virtual ~Keeper() = default;
    /// Lets go of bytes until no more than there may be are counted, or none of its own are left.
    virtual void makeRoom() = 0;
  };

  /// The bytes that one holds, among all that are counted. May outlive the budget. Thread: one at a
  /// time, save as told.
  class Count {
   public:
    explicit Count(const ByteBudget& budget) : state_(budget.state_) {}
    ~Count() { set(0); }
    Count(const Count&) = delete;
    Count& operator=(const Count&) = delete;

    void set(int64_t bytes);
    /// Has the keeper make room if more are counted than there may be. Not with a lock held.
    /// Thread: any.
    void makeRoom() const;

   private:
    const std::shared_ptr<State> state_;
    int64_t bytes_ = 0;
  };

  /// The process's.
  [[nodiscard]] static ByteBudget& shared();

  explicit ByteBudget(int64_t total = kOfProcess, int64_t most = kOfResource);

  /// Tells the holder its bound, and all others theirs. It leaves by its end, and by remove().
  void add(const std::shared_ptr<Holder>& holder);
  void remove(const Holder& holder);

  void setKeeper(std::weak_ptr<Keeper> keeper);
  [[nodiscard]] int64_t total() const;
  /// All that is counted; above the total for a moment only, or while more is waited for.
  [[nodiscard]] int64_t counted() const;

 private:
  struct State {
    explicit State(int64_t ofAll) : total(ofAll) {}

    const int64_t total;
    std::atomic<int64_t> counted{0};
    Mutex holdersMutex;
    std::vector<std::weak_ptr<Holder>> holders ZAFFO_GUARDED_BY(holdersMutex);
    std::weak_ptr<Keeper> keeper ZAFFO_GUARDED_BY(holdersMutex);
  };
  void share();

  const int64_t most_;
  const std::shared_ptr<State> state_;
};

}  // namespace zaffo::network
