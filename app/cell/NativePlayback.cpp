// SPDX-License-Identifier: Apache-2.0
#include "cell/NativePlayback.h"

#include <utility>

namespace zaffo::feed {

std::shared_ptr<NativePlayback> NativePlayback::create(std::shared_ptr<Player> player,
                                                       std::shared_ptr<AVPlayerLayer> layer,
                                                       Events events) {
  auto playback = std::make_shared<NativePlayback>(Private{}, std::move(player), std::move(layer));
  const auto item = playback->player_->playerItem();
  if (!item) return playback;
  playback->endObserver_.emplace(
      item,
      [weakSelf = std::weak_ptr(playback), ended = std::move(events.ended)] {
        const auto self = weakSelf.lock();
        if (!self) return;
        self->hasEnded_ = true;
        ended();
      },
      std::move(events.failed));
  return playback;
}

void NativePlayback::setRate(float rate) {
  rate_ = rate;
  player_->setRate(rate);
}

void NativePlayback::rewind() {
  seek(kCMTimeZero, nullptr);
}

void NativePlayback::seek(CMTime time, std::function<void()> done) {
  player_->seekToTime(time, kCMTimeZero, kCMTimeZero,
                      [weakSelf = weak_from_this(), done = std::move(done)](bool finished) {
                        const auto self = weakSelf.lock();
                        if (self && finished) self->goOn();
                        if (done) done();
                      });
}

/// Starts the player again if the end of the item had stopped it.
void NativePlayback::goOn() {
  if (std::exchange(hasEnded_, false) && rate_ > 0) player_->setRate(rate_);
}

}  // namespace zaffo::feed
