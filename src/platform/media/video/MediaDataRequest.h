// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo::media {

/// Where a renderer's samples come from: a client that is called when there is room for more, or
/// one that brings them as it likes. Knows who is to be called, whether a call is owed, and what
/// can be expected of the present run, which is all that comes between two flushes.
///
///              a call of this run brought all there is
///     Coming ────────────────────────────────────────────> Ended
///      │ ^ ^                                                 │
///      │ │ └──────── a sample, a request, a new run ─────────┘
///      │ └────────── a sample, a request, a new run ─────────┐
///      └───────────────────────────────────────────────────> Quiet
///              nobody is called, and nothing came for a while
///
/// A call brought all there is when it returns while there is room, unless more is expected, or
/// when the calls are stopped within it. Whoever stops the calls from elsewhere does not say that
/// this is all: most often the run is being left for another. Nothing is to be made of what it
/// lacks until there is a new request.
///
/// Thread: any.
class MediaDataRequest : public std::enable_shared_from_this<MediaDataRequest> {
 public:
  enum class Prospect {
    Coming,  ///< samples are on their way
    Quiet,   ///< none seems to be, but nobody said that these are all
    Ended,   ///< these are all, as far as the client knows by now
  };

  /// Called on the client's queue each time a call of its block returned. To be set before any
  /// request.
  void setAnsweredHandler(std::function<void()> answered) { answered_ = std::move(answered); }

  /// From now on `block` is called on `queue`; a first call is owed. Replaces an earlier request.
  void request(DispatchQueuePtr queue, std::function<void()> block);
  /// No call begins after this returns, except on a queue that has begun it already. Gives what
  /// was held for the calls.
  std::shared_ptr<void> stop();

  /// Within a call: what there is was not brought, for it has not come yet. The client will ask
  /// anew when it has.
  void expect();

  /// The client was told that there is no room, or made it so: a call is owed when there is.
  void owe();
  [[nodiscard]] bool owesCall() const;
  /// There is room: makes the call that is owed, if one is.
  void call();

  /// Forgets all that came before. A client that is to be called is owed a call once more.
  void beginRun(uint64_t run);
  void noteSample(int64_t hostNanoseconds);

  /// What can be expected of a run; Coming when it is not the present one.
  [[nodiscard]] Prospect prospect(uint64_t run, int64_t hostNanoseconds) const;
  /// The host time at which the present run becomes Quiet if nothing happens; nothing while
  /// whoever is called has not answered.
  [[nodiscard]] std::optional<int64_t> quietAt() const;
  /// Whether the run is over, or the calls for it were stopped from elsewhere.
  [[nodiscard]] bool isLeft(uint64_t run) const;

 private:
  struct Client {
    DispatchQueuePtr queue;
    std::function<void()> block;
    std::atomic<bool> isStopped{false};
  };
  using ClientPtr = std::shared_ptr<Client>;

  [[nodiscard]] uint64_t beginCall(const ClientPtr& client);
  void endCall(const ClientPtr& client, uint64_t run);
  ClientPtr replaceWhileLocked(ClientPtr client) ZAFFO_REQUIRES(runMutex_);
  [[nodiscard]] bool isAwaitedWhileLocked() const ZAFFO_REQUIRES(runMutex_);

  std::function<void()> answered_;
  mutable Mutex runMutex_;
  uint64_t run_ ZAFFO_GUARDED_BY(runMutex_) = 0;
  bool hasEnded_ ZAFFO_GUARDED_BY(runMutex_) = false;
  bool isLeft_ ZAFFO_GUARDED_BY(runMutex_) = false;
  int64_t lastSample_ ZAFFO_GUARDED_BY(runMutex_) = 0;

  ClientPtr client_ ZAFFO_GUARDED_BY(runMutex_);
  bool owesCall_ ZAFFO_GUARDED_BY(runMutex_) = false;
  // Of the present client.
  int callsUnderWay_ ZAFFO_GUARDED_BY(runMutex_) = 0;  ///< queued or begun
  std::thread::id calledOn_ ZAFFO_GUARDED_BY(runMutex_);
  bool isExpecting_ ZAFFO_GUARDED_BY(runMutex_) = false;  ///< and asks anew by itself
  uint64_t calledInRun_ ZAFFO_GUARDED_BY(runMutex_) = 0;
};

}  // namespace zaffo::media
