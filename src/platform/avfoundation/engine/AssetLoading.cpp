// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetLoading.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/dispatch/Confinement.h"
#include "platform/dispatch/StorageQueue.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {
namespace {

constexpr std::array kKnownKeys{"tracks", "duration", "playable", "readable"};

bool isKnown(const std::string& key) {
  return std::ranges::find(kKnownKeys, key) != kKnownKeys.end();
}

}  // namespace

AssetLoading::AssetLoading(Open open)
    : open_(std::move(open)),
      queue_(makeStorageQueue("com.zaffo.asset")),
      handlers_(dispatch_queue_create("com.zaffo.asset.handlers")) {}

void AssetLoading::load(const std::vector<std::string>& keys, std::function<void()> handler) {
  std::vector<std::function<void()>> handlers;
  {
    MutexLock lock(mutex_);
    const AVKeyValueStatus reached = source_  ? AVKeyValueStatus::Loaded
                                     : error_ ? AVKeyValueStatus::Failed
                                              : AVKeyValueStatus::Loading;
    for (const std::string& key : keys) {
      AVKeyValueStatus& status = statuses_[key];
      const bool open =
          status == AVKeyValueStatus::Unknown || status == AVKeyValueStatus::Cancelled;
      if (open) status = isKnown(key) ? reached : AVKeyValueStatus::Failed;
    }
    waiters_.push_back({keys, std::move(handler)});
    handlers = takeHandlersWhileLocked();
    if (!waiters_.empty()) startPassWhileLocked();
  }
  callLater(std::move(handlers));
}

void AssetLoading::startPassWhileLocked() {
  if (passUnderWay_) return;
  passUnderWay_ = true;
  queue_->async([self = shared_from_this(), pass = ++pass_] { self->run(pass); });
}

bool AssetLoading::isUnderWayWhileLocked(int pass) const {
  return passUnderWay_ && pass == pass_;
}

void AssetLoading::run(int pass) {
  assertCurrent(*queue_);
  {
    MutexLock lock(mutex_);
    if (!isUnderWayWhileLocked(pass)) return;
  }
  auto opening = open_(queue_, [self = shared_from_this(), pass](Opened opened) {
    self->finish(pass, std::move(opened));
  });
  MutexLock lock(mutex_);
  if (isUnderWayWhileLocked(pass)) opening_.swap(opening);
}

void AssetLoading::finish(int pass, Opened opened) {
  std::vector<std::function<void()>> handlers;
  std::shared_ptr<void> opening;
  {
    MutexLock lock(mutex_);
    if (!isUnderWayWhileLocked(pass)) return;
    passUnderWay_ = false;
    opening.swap(opening_);
    error_ = opened.error();
    source_ = std::move(opened).valueOr(nullptr);
    settleWhileLocked(source_ ? AVKeyValueStatus::Loaded : AVKeyValueStatus::Failed);
    handlers = takeHandlersWhileLocked();
  }
  for (const auto& handler : handlers) handler();
}

void AssetLoading::cancel() {
  std::vector<std::function<void()>> handlers;
  std::shared_ptr<void> opening;
  {
    MutexLock lock(mutex_);
    passUnderWay_ = false;
    opening.swap(opening_);
    settleWhileLocked(AVKeyValueStatus::Cancelled);
    handlers = takeHandlersWhileLocked();
  }
  callLater(std::move(handlers));
}

void AssetLoading::settleWhileLocked(AVKeyValueStatus status) {
  for (auto& [key, present] : statuses_) {
    if (present == AVKeyValueStatus::Loading) present = status;
  }
}

bool AssetLoading::hasEndedWhileLocked(const Waiter& waiter) const {
  for (const std::string& key : waiter.keys) {
    if (statuses_.at(key) == AVKeyValueStatus::Loading) return false;
  }
  return true;
}

std::vector<std::function<void()>> AssetLoading::takeHandlersWhileLocked() {
  std::vector<std::function<void()>> handlers;
  std::vector<Waiter> remaining;
  for (Waiter& waiter : waiters_) {
    if (!hasEndedWhileLocked(waiter)) {
      remaining.push_back(std::move(waiter));
    } else if (waiter.handler) {
      handlers.push_back(std::move(waiter.handler));
    }
  }
  waiters_ = std::move(remaining);
  return handlers;
}

// The queue outlives the asset while blocks are on it: a handler runs even if the asset is let go.
void AssetLoading::callLater(std::vector<std::function<void()>> handlers) {
  for (auto& handler : handlers) handlers_->async(std::move(handler));
}

AVKeyValueStatus AssetLoading::status(const std::string& key, NSErrorPtr* error) const {
  MutexLock lock(mutex_);
  const auto found = statuses_.find(key);
  const AVKeyValueStatus status =
      found == statuses_.end() ? AVKeyValueStatus::Unknown : found->second;
  if (error && status == AVKeyValueStatus::Failed) {
    *error =
        isKnown(key) ? error_ : makeError(AVErrorUnknown, "An asset has no key \"" + key + "\".");
  }
  return status;
}

std::shared_ptr<media::SampleSource> AssetLoading::sourceForKey(const std::string& key) const {
  MutexLock lock(mutex_);
  const auto found = statuses_.find(key);
  const bool loaded = found != statuses_.end() && found->second == AVKeyValueStatus::Loaded;
  return loaded ? source_ : nullptr;
}

NSErrorPtr AssetLoading::error() const {
  MutexLock lock(mutex_);
  return error_;
}

}  // namespace zaffo
