// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/MediaDataRequest.h"

#include <utility>

namespace zaffo::media {

namespace {

/// What a client that is not being called may take between two samples.
constexpr int64_t kPatienceNanoseconds = 100'000'000;

}  // namespace

// Who is called

void MediaDataRequest::request(DispatchQueuePtr queue, std::function<void()> block) {
  auto client = std::make_shared<Client>();
  client->queue = std::move(queue);
  client->block = std::move(block);
  ClientPtr former;  // let go of without the lock
  MutexLock lock(runMutex_);
  former = replaceWhileLocked(std::move(client));
  owesCall_ = true;
  hasEnded_ = isLeft_ = false;
}

std::shared_ptr<void> MediaDataRequest::stop() {
  MutexLock lock(runMutex_);
  if (!client_) return nullptr;
  if (calledOn_ != std::this_thread::get_id()) {
    isLeft_ = true;
  } else if (calledInRun_ == run_) {
    hasEnded_ = true;
  }
  return replaceWhileLocked(nullptr);
}

MediaDataRequest::ClientPtr MediaDataRequest::replaceWhileLocked(ClientPtr client) {
  if (client_) client_->isStopped = true;
  owesCall_ = false;
  callsUnderWay_ = 0;
  calledOn_ = {};
  isExpecting_ = false;
  return std::exchange(client_, std::move(client));
}

void MediaDataRequest::expect() {
  MutexLock lock(runMutex_);
  const bool isCalled = calledOn_ == std::this_thread::get_id() && calledInRun_ == run_;
  if (isCalled) isExpecting_ = true;
}

void MediaDataRequest::owe() {
  MutexLock lock(runMutex_);
  if (!client_) return;
  owesCall_ = true;
  hasEnded_ = false;
}

bool MediaDataRequest::owesCall() const {
  MutexLock lock(runMutex_);
  return owesCall_;
}

void MediaDataRequest::call() {
  ClientPtr client;
  {
    MutexLock lock(runMutex_);
    if (!std::exchange(owesCall_, false)) return;
    client = client_;
    ++callsUnderWay_;
  }
  client->queue->async([self = shared_from_this(), client] {
    const uint64_t run = self->beginCall(client);
    if (!client->isStopped) client->block();
    self->endCall(client, run);
    self->answered_();
  });
}

/// On the client's queue. The run that the call is for: the one that it finds.
uint64_t MediaDataRequest::beginCall(const ClientPtr& client) {
  MutexLock lock(runMutex_);
  if (client == client_) {
    calledOn_ = std::this_thread::get_id();
    calledInRun_ = run_;
  }
  return run_;
}

void MediaDataRequest::endCall(const ClientPtr& client, uint64_t run) {
  MutexLock lock(runMutex_);
  if (client != client_) return;
  --callsUnderWay_;
  calledOn_ = {};
  if (run == run_ && !isAwaitedWhileLocked()) hasEnded_ = true;
}

// What is on its way

void MediaDataRequest::beginRun(uint64_t run) {
  MutexLock lock(runMutex_);
  run_ = run;
  hasEnded_ = isLeft_ = false;
  owesCall_ = client_ != nullptr;
  isExpecting_ = false;
}

void MediaDataRequest::noteSample(int64_t hostNanoseconds) {
  MutexLock lock(runMutex_);
  lastSample_ = hostNanoseconds;
  hasEnded_ = false;
}

bool MediaDataRequest::isAwaitedWhileLocked() const {
  return owesCall_ || callsUnderWay_ > 0 || isExpecting_;
}

MediaDataRequest::Prospect MediaDataRequest::prospect(uint64_t run, int64_t hostNanoseconds) const {
  MutexLock lock(runMutex_);
  if (run != run_ || isAwaitedWhileLocked()) return Prospect::Coming;
  if (hasEnded_) return Prospect::Ended;
  const bool isQuiet = hostNanoseconds >= lastSample_ + kPatienceNanoseconds;
  return isQuiet ? Prospect::Quiet : Prospect::Coming;
}

std::optional<int64_t> MediaDataRequest::quietAt() const {
  MutexLock lock(runMutex_);
  if (isAwaitedWhileLocked()) return std::nullopt;
  return lastSample_ + kPatienceNanoseconds;
}

bool MediaDataRequest::isLeft(uint64_t run) const {
  MutexLock lock(runMutex_);
  return run != run_ || isLeft_;
}

}  // namespace zaffo::media
