// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/ListReloading.h"

#include <cmath>
#include <utility>

#include "platform/TimeSource.h"

namespace zaffo::streaming {

std::shared_ptr<ListReloading> ListReloading::make(network::URL address, Taker taker) {
  return std::shared_ptr<ListReloading>(new ListReloading(std::move(address), std::move(taker)));
}

ListReloading::ListReloading(network::URL address, Taker taker)
    : address_(std::move(address)),
      taker_(std::move(taker)),
      queue_(dispatch_queue_create("com.zaffo.stream")),
      askedAt_(TimeSource::now()) {}

ListReloading::~ListReloading() {
  if (timer_) timer_->cancel();
}

/// What makes a step on the queue, from any thread, unless this is gone by then.
std::function<void()> ListReloading::posting(void (ListReloading::*turn)()) {
  return [weakSelf = weak_from_this(), queue = queue_, turn] {
    queue->async([weakSelf, turn] {
      if (const auto self = weakSelf.lock()) (self.get()->*turn)();
    });
  };
}

void ListReloading::askAfter(double seconds) {
  queue_->async([weakSelf = weak_from_this(), seconds] {
    const auto self = weakSelf.lock();
    if (!self || self->timer_ || self->loading_) return;
    const auto pause = static_cast<int64_t>(seconds * 1e9);
    self->timer_ =
        dispatch_timer_at(self->askedAt_ + pause, self->queue_, self->posting(&ListReloading::ask));
  });
}

/// Not from what is kept, which would be the list as it was.
void ListReloading::ask() {
  timer_.reset();
  askedAt_ = TimeSource::now();
  loading_ = std::make_unique<ListLoading>(std::make_shared<network::HttpResource>(address_));
  step();
}

void ListReloading::step() {
  if (!loading_) return;
  if (loading_->step() == media::Outcome::Again) {
    want_ = loading_->want(posting(&ListReloading::step));
    return;
  }
  auto list = loading_->take();
  want_.reset();
  loading_.reset();
  taker_(std::move(list));
}

}  // namespace zaffo::streaming
