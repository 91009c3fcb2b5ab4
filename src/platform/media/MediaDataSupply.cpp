#include "platform/media/MediaDataSupply.h"

#include <utility>

namespace zaffo::media {

namespace {

/// What a client that is never called may take between two samples.
constexpr int64_t kPatienceNanoseconds = 100'000'000;

}  // namespace

void MediaDataSupply::request(DispatchQueuePtr queue, std::function<void()> block) {
  auto request = std::make_shared<Request>();
  request->queue = std::move(queue);
  request->block = std::move(block);
  MutexLock lock(requestMutex_);
  if (request_) request_->stopped = true;
  request_.swap(request);
  owesCall_ = wasAsked_ = true;
}

std::shared_ptr<void> MediaDataSupply::stop() {
  MutexLock lock(requestMutex_);
  if (request_) request_->stopped = true;
  owesCall_ = false;
  return std::exchange(request_, nullptr);
}

void MediaDataSupply::owe() {
  MutexLock lock(requestMutex_);
  owesCall_ = request_ != nullptr;
}

bool MediaDataSupply::owesCall() const {
  MutexLock lock(requestMutex_);
  return owesCall_;
}

void MediaDataSupply::call() {
  std::shared_ptr<Request> request;
  {
    MutexLock lock(requestMutex_);
    if (!std::exchange(owesCall_, false)) return;
    request = request_;
  }
  ++request->underWay;
  request->queue->async([request, answered = answered_] {
    if (!request->stopped) request->block();
    --request->underWay;
    answered();
  });
}

void MediaDataSupply::noteSample(int64_t hostNanoseconds) {
  lastSample_ = hostNanoseconds;
}

void MediaDataSupply::noteFlush() {
  MutexLock lock(requestMutex_);
  wasAsked_ = request_ != nullptr;
}

bool MediaDataSupply::hasEnded(int64_t hostNanoseconds) const {
  MutexLock lock(requestMutex_);
  if (request_) return !owesCall_ && request_->underWay == 0;
  return wasAsked_ || hostNanoseconds >= lastSample_ + kPatienceNanoseconds;
}

std::optional<int64_t> MediaDataSupply::endsAt() const {
  MutexLock lock(requestMutex_);
  if (request_) return std::nullopt;
  return lastSample_ + kPatienceNanoseconds;
}

}  // namespace zaffo::media
