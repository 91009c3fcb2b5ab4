#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo::media {

/// Where a renderer's samples come from: a client that is called when there is room for more, or
/// one that brings them as it likes. Knows who is to be called, whether a call is owed, and whether
/// a sample may still be on its way. Thread: any.
class MediaDataSupply {
 public:
  /// Called on the client's queue each time a call of its block returned. To be set before any
  /// request.
  void setAnsweredHandler(std::function<void()> answered) { answered_ = std::move(answered); }

  /// From now on `block` is called on `queue`; a first call is owed. Replaces an earlier request.
  void request(DispatchQueuePtr queue, std::function<void()> block);
  /// No call begins after this returns, except on a queue that has begun it already. Gives what
  /// was held for the calls.
  std::shared_ptr<void> stop();

  /// The client was told that there is no room, or made it so: a call is owed when there is.
  void owe();
  [[nodiscard]] bool owesCall() const;
  /// There is room: makes the call that is owed, if one is.
  void call();

  void noteSample(int64_t hostNanoseconds);
  void noteFlush();
  /// Whether no sample is on its way: whoever is called has been and has no more for now, or
  /// stopped the calls, or, if it never asked for any, brought none for a while.
  [[nodiscard]] bool hasEnded(int64_t hostNanoseconds) const;
  /// The host time at which that will be so if nothing happens; nothing when it waits for a call.
  [[nodiscard]] std::optional<int64_t> endsAt() const;

 private:
  struct Request {
    DispatchQueuePtr queue;
    std::function<void()> block;
    std::atomic<bool> stopped{false};
    std::atomic<int> underWay{0};
  };

  std::function<void()> answered_;
  mutable Mutex requestMutex_;
  std::shared_ptr<Request> request_ ZAFFO_GUARDED_BY(requestMutex_);
  bool owesCall_ ZAFFO_GUARDED_BY(requestMutex_) = false;
  bool wasAsked_ ZAFFO_GUARDED_BY(requestMutex_) = false;
  std::atomic<int64_t> lastSample_{0};
};

}  // namespace zaffo::media
