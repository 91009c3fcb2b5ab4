// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/soundtrack/Soundtrack.h"

namespace zaffo::media {

/// Keeps a soundtrack flowing on a queue of its own, where no picture is ever decoded: however long
/// those take, the output is topped up in time. What else is done with the soundtrack takes turns
/// with that. Thread: any.
class SoundFeed : public std::enable_shared_from_this<SoundFeed> {
 public:
  [[nodiscard]] static std::shared_ptr<SoundFeed> create(std::unique_ptr<Soundtrack> track);
  ~SoundFeed();
  SoundFeed(const SoundFeed&) = delete;
  SoundFeed& operator=(const SoundFeed&) = delete;

  /// Called, on any thread, when a source that was waited for has something again, and when all the
  /// sound was given to the output or no more is to be had for now. Set before any other call.
  void setHandler(std::function<void()> handler);

  /// What `use` gives for the soundtrack; it must not call back.
  template <typename Use>
  auto with(Use use) {
    MutexLock lock(trackMutex_);
    return use(*track_);
  }

  /// Starts the sound as Soundtrack::start() does, and tops it up from now on.
  void start(int64_t outputFrame, double rate);
  void stop();
  /// As Soundtrack's; not while it is stopped.
  [[nodiscard]] std::optional<int64_t> runsDryHostTime() const;
  [[nodiscard]] bool isLeftBehind() const;

 private:
  explicit SoundFeed(std::unique_ptr<Soundtrack> track);
  void topUpSoon();
  void topUp();
  void wakeWhileLocked() ZAFFO_REQUIRES(trackMutex_);

  const DispatchQueuePtr queue_;
  std::function<void()> handler_;
  mutable Mutex trackMutex_;
  const std::unique_ptr<Soundtrack> track_ ZAFFO_GUARDED_BY(trackMutex_);
  bool isFlowing_ ZAFFO_GUARDED_BY(trackMutex_) = false;
  DispatchTimerPtr timer_ ZAFFO_GUARDED_BY(trackMutex_);
};

}  // namespace zaffo::media
