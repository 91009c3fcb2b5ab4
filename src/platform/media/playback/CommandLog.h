// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/Mutex.h"

namespace zaffo::media {

/// Numbers the commands that an owner gives a playback, and notes which ones its queue has begun.
/// So the queue knows when a newer seek has made its work useless, and the owner, which learns of
/// events with a delay, whether it has given another command since. Thread: any.
class CommandLog {
 public:
  using Number = uint64_t;

  // The owner.
  [[nodiscard]] Number giveRate() {
    MutexLock lock(numbersMutex_);
    return ++given_;
  }
  [[nodiscard]] Number giveSeek() {
    MutexLock lock(numbersMutex_);
    return seekGiven_ = ++given_;
  }
  /// Nothing that was given before is of use any more.
  void close() {
    MutexLock lock(numbersMutex_);
    isClosed_ = true;
  }
  [[nodiscard]] bool isLatest(Number command) const {
    MutexLock lock(numbersMutex_);
    return command == given_;
  }

  // The queue.
  void begin(Number command) {
    MutexLock lock(numbersMutex_);
    begun_ = std::max(begun_, command);  // two threads may post theirs in either order
  }
  /// The last that was begun.
  [[nodiscard]] Number begun() const {
    MutexLock lock(numbersMutex_);
    return begun_;
  }
  [[nodiscard]] bool isClosed() const {
    MutexLock lock(numbersMutex_);
    return isClosed_;
  }
  /// Whether what is under way is of no use: a seek waits behind it, or all is over.
  [[nodiscard]] bool isSuperseded() const {
    MutexLock lock(numbersMutex_);
    return isClosed_ || seekGiven_ > begun_;
  }

 private:
  mutable Mutex numbersMutex_;
  Number given_ ZAFFO_GUARDED_BY(numbersMutex_) = 0;
  Number seekGiven_ ZAFFO_GUARDED_BY(numbersMutex_) = 0;
  Number begun_ ZAFFO_GUARDED_BY(numbersMutex_) = 0;
  bool isClosed_ ZAFFO_GUARDED_BY(numbersMutex_) = false;
};

}  // namespace zaffo::media
