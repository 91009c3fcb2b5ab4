// SPDX-License-Identifier: Apache-2.0
#include "platform/media/MediaServices.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

#include "platform/Mutex.h"

namespace zaffo::media {

namespace {
using Observer = std::function<void()>;
}  // namespace

struct MediaServices::State {
  std::atomic<uint64_t> generation{0};
  Mutex observersMutex;
  std::vector<std::weak_ptr<Observer>> observers ZAFFO_GUARDED_BY(observersMutex);

  void sweepWhileLocked() ZAFFO_REQUIRES(observersMutex) {
    std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
  }
  std::vector<std::weak_ptr<Observer>> present() {
    MutexLock lock(observersMutex);
    sweepWhileLocked();
    return observers;
  }
};

MediaServices& MediaServices::shared() {
  static auto* const services = new MediaServices;  // observers may outlive static objects
  return *services;
}

MediaServices::MediaServices() : state_(std::make_unique<State>()) {}
MediaServices::~MediaServices() = default;

uint64_t MediaServices::generation() const {
  return state_->generation.load();
}

std::shared_ptr<void> MediaServices::observeReset(std::function<void()> wasReset) {
  auto observer = std::make_shared<Observer>(std::move(wasReset));
  MutexLock lock(state_->observersMutex);
  state_->sweepWhileLocked();  // resets are rare, and players come and go
  state_->observers.push_back(observer);
  return observer;
}

void MediaServices::reset() {
  state_->generation.fetch_add(1);
  for (const auto& weak : state_->present()) {
    if (const auto observer = weak.lock()) (*observer)();
  }
}

}  // namespace zaffo::media
