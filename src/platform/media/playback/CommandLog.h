#pragma once

#include <cstdint>

#include "platform/Mutex.h"

namespace zaffo::media {

/// The commands that an owner gives a playback, by number: those given on any thread, and those
/// begun on the playback's queue. So the queue knows whether a newer seek makes its work useless,
/// and the owner, which hears of an event later, whether it has given a command since. Thread: any.
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
    begun_ = command;
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
