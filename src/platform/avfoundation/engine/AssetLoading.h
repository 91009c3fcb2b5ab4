// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVAsset.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/Result.h"

namespace zaffo {

/// The keys of one asset and the handlers that wait for them.
///
///              load()                 finish(source)
///   Unknown ───────────▶ Loading ──────────────────▶ Loaded
///      ▲                  │   │   finish(error)
///      │                  │   └───────────────────▶ Failed
///      │         cancel() ▼
///      └ ─ ─ load() ─ Cancelled
///
/// One pass over the header answers every key, so all keys that are Loading end together.
/// Thread: any. Handlers run on the queue that opened the asset, or, where they need not wait for
/// that, on one of the asset's own that nothing holds up: those of a load that was cancelled, or of
/// keys that have an end already, run at once though the opening may still be waiting for a disk.
class AssetLoading : public std::enable_shared_from_this<AssetLoading> {
 public:
  using Opened = Result<std::shared_ptr<media::SampleSource>>;
  /// Opens the media and calls `done` once, on `queue` or in the call; not if what it returned is
  /// let go of before.
  using Open = std::function<std::shared_ptr<void>(const DispatchQueuePtr& queue,
                                                   std::function<void(Opened)> done)>;

  /// `open` is called on the queue that it is given, where it may wait for the outside world.
  explicit AssetLoading(Open open);

  void load(const std::vector<std::string>& keys, std::function<void()> handler);
  void cancel();
  [[nodiscard]] AVKeyValueStatus status(const std::string& key, NSErrorPtr* error) const;
  /// The source, once `key` is Loaded; null before.
  [[nodiscard]] std::shared_ptr<media::SampleSource> sourceForKey(const std::string& key) const;
  [[nodiscard]] NSErrorPtr error() const;

 private:
  struct Waiter {
    std::vector<std::string> keys;
    std::function<void()> handler;
  };

  void run(int pass);
  void finish(int pass, Opened opened);
  [[nodiscard]] bool isUnderWayWhileLocked(int pass) const ZAFFO_REQUIRES(mutex_);
  void startPassWhileLocked() ZAFFO_REQUIRES(mutex_);
  void settleWhileLocked(AVKeyValueStatus status) ZAFFO_REQUIRES(mutex_);
  [[nodiscard]] bool hasEndedWhileLocked(const Waiter& waiter) const ZAFFO_REQUIRES(mutex_);
  [[nodiscard]] std::vector<std::function<void()>> takeHandlersWhileLocked() ZAFFO_REQUIRES(mutex_);
  void callLater(std::vector<std::function<void()>> handlers);

  const Open open_;
  const DispatchQueuePtr queue_;     // opens the asset, and may wait
  const DispatchQueuePtr handlers_;  // never waits

  mutable Mutex mutex_;
  std::map<std::string, AVKeyValueStatus> statuses_ ZAFFO_GUARDED_BY(mutex_);
  std::vector<Waiter> waiters_ ZAFFO_GUARDED_BY(mutex_);
  std::shared_ptr<media::SampleSource> source_ ZAFFO_GUARDED_BY(mutex_);
  NSErrorPtr error_ ZAFFO_GUARDED_BY(mutex_);
  int pass_ ZAFFO_GUARDED_BY(mutex_) =
      0;  // the pass under way, or the last; a cancelled one is old
  bool passUnderWay_ ZAFFO_GUARDED_BY(mutex_) = false;
  std::shared_ptr<void> opening_ ZAFFO_GUARDED_BY(mutex_);  // of the pass under way
};

}  // namespace zaffo
