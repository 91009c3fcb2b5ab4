#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Mutex.h"

namespace zaffo::network {

/// Shares the memory for remote bytes out among the resources that are open: each gets the same
/// part of what the process may hold, and no more than one may hold. Thread: any.
class ByteBudget {
 public:
  static constexpr int64_t kOfProcess = int64_t{32} * 1024 * 1024;
  static constexpr int64_t kOfResource = int64_t{8} * 1024 * 1024;

  /// One that holds bytes. Thread: any.
  class Holder {
   public:
    virtual ~Holder() = default;
    /// It may hold so many from now on.
    virtual void setByteBound(int64_t bound) = 0;
  };

  /// The process's.
  [[nodiscard]] static ByteBudget& shared();

  explicit ByteBudget(int64_t total = kOfProcess, int64_t most = kOfResource)
      : total_(total), most_(most) {}

  /// Tells the holder its bound, and all others theirs. It leaves by its end, and by remove().
  void add(const std::shared_ptr<Holder>& holder);
  void remove(const Holder& holder);

 private:
  void share();

  const int64_t total_, most_;
  Mutex holdersMutex_;
  std::vector<std::weak_ptr<Holder>> holders_ ZAFFO_GUARDED_BY(holdersMutex_);
};

}  // namespace zaffo::network
