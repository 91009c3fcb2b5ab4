// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SoundFeed.h"

#include <utility>

#include "platform/dispatch/MediaQueues.h"
#include "platform/media/playback/DueTime.h"

namespace zaffo::media {

std::shared_ptr<SoundFeed> SoundFeed::create(std::unique_ptr<Soundtrack> track) {
  return std::shared_ptr<SoundFeed>(new SoundFeed(std::move(track)));
}

SoundFeed::SoundFeed(std::unique_ptr<Soundtrack> track)
    : queue_(makeSoundQueue("com.zaffo.sound")), track_(std::move(track)) {}

SoundFeed::~SoundFeed() {
  if (timer_) timer_->cancel();
}

void SoundFeed::setHandler(std::function<void()> handler) {
  handler_ = std::move(handler);
  with([this](Soundtrack& track) {
    track.setReadyHandler([weakSelf = weak_from_this()] {
      const auto self = weakSelf.lock();
      if (!self) return;
      self->topUpSoon();
      if (self->handler_) self->handler_();
    });
  });
}

void SoundFeed::start(int64_t outputFrame, double rate) {
  MutexLock lock(trackMutex_);
  track_->start(outputFrame, rate);
  isFlowing_ = true;
  wakeWhileLocked();
}

void SoundFeed::stop() {
  MutexLock lock(trackMutex_);
  isFlowing_ = false;
  wakeWhileLocked();
  track_->stop();
}

std::optional<int64_t> SoundFeed::runsDryHostTime() const {
  MutexLock lock(trackMutex_);
  return isFlowing_ ? track_->runsDryHostTime() : std::nullopt;
}

bool SoundFeed::isLeftBehind() const {
  MutexLock lock(trackMutex_);
  return isFlowing_ && track_->isLeftBehind();
}

void SoundFeed::topUpSoon() {
  queue_->async([weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->topUp();
  });
}

void SoundFeed::topUp() {
  bool tells = false;
  {
    MutexLock lock(trackMutex_);
    if (!isFlowing_) return;
    track_->fill();
    wakeWhileLocked();
    tells = !timer_;
  }
  if (tells && handler_) handler_();
}

/// Sets the timer for the next time, if there is one.
void SoundFeed::wakeWhileLocked() {
  if (timer_) timer_->cancel();
  timer_ = nullptr;
  const auto due = isFlowing_ ? track_->nextFillHostTime() : std::nullopt;
  if (!due) return;
  timer_ = dispatch_timer_at(wakeHostTime(*due), queue_, [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->topUp();
  });
}

}  // namespace zaffo::media
