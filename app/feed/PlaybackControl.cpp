// SPDX-License-Identifier: Apache-2.0
#include "feed/PlaybackControl.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::feed {

namespace {

constexpr CMTimeScale kTimescale = 90000;
/// Nanoseconds after which one seek gives way to another.
constexpr int64_t kLongSeek = 40'000'000;
constexpr double kBeforeTheEnd = 0.01;  // seconds: at the very end there is no picture

}  // namespace

PlaybackControl::PlaybackControl(Private, std::shared_ptr<FeedController> controller)
    : controller_(std::move(controller)) {}

std::shared_ptr<PlaybackControl> PlaybackControl::create(
    std::shared_ptr<FeedController> controller) {
  return std::make_shared<PlaybackControl>(Private{}, std::move(controller));
}

// Playing

void PlaybackControl::togglePlaying() {
  if (const auto cell = controller_->currentCell()) cell->togglePlaying();
}

bool PlaybackControl::isPaused() const {
  const auto cell = controller_->currentCell();
  return cell && !(cell->rate() > 0);
}

bool PlaybackControl::isPlaying() const {
  const auto cell = controller_->currentCell();
  return cell && cell->isPlaying();
}

void PlaybackControl::setVisible(bool visible) {
  isVisible_ = visible;
  hold();
}

void PlaybackControl::hold() {
  controller_->setHeld(isScrubbing_ || !isVisible_);
}

void PlaybackControl::pageChanged() {
  ++page_;
  isSeeking_ = isSeekDue_ = false;
  if (const auto timer = std::exchange(leaveTimer_, nullptr)) timer->cancel();
  target_.reset();
  endScrub();
}

// Seeking

std::optional<ClipPosition> PlaybackControl::position() const {
  const auto cell = controller_->currentCell();
  if (target_) return target_;
  return cell ? cell->position() : std::nullopt;
}

void PlaybackControl::seekBy(double seconds) {
  if (const auto now = position()) seekTo(now->time + seconds);
}

void PlaybackControl::scrub(double fraction) {
  const auto now = position();
  if (!now) return;
  isScrubbing_ = true;
  hold();
  seekTo(std::clamp(fraction, 0.0, 1.0) * now->length);
}

void PlaybackControl::endScrub() {
  if (!std::exchange(isScrubbing_, false)) return;
  hold();
}

void PlaybackControl::seekTo(double time) {
  auto target = position();
  if (!target) return;
  target->time = std::clamp(time, 0.0, std::max(target->length - kBeforeTheEnd, 0.0));
  target_ = target;
  isSeekDue_ = true;
  if (!isSeeking_) return seekNext();
  leaveSeekIfLong();
}

void PlaybackControl::seekNext() {
  const auto cell = controller_->currentCell();
  if (!cell || !target_) return;
  isSeeking_ = true;
  isSeekDue_ = false;
  seekBegan_ = TimeSource::now();
  if (const auto timer = std::exchange(leaveTimer_, nullptr)) timer->cancel();
  cell->seek(CMTimeMakeWithSeconds(target_->start + target_->time, kTimescale),
             [weakSelf = weak_from_this(), page = page_, number = ++seekNumber_] {
               // Some players answer inside the call.
               dispatch_async(dispatch_get_main_queue(), [weakSelf, page, number] {
                 const auto self = weakSelf.lock();
                 if (self && self->page_ == page && self->seekNumber_ == number) self->seekEnded();
               });
             });
}

void PlaybackControl::seekEnded() {
  isSeeking_ = false;
  if (isSeekDue_) return seekNext();
  target_.reset();
}

/// A picture near by is on show then: who scrubs need not wait for the one meant.
void PlaybackControl::leaveSeekIfLong() {
  const auto cell = controller_->currentCell();
  if (leaveTimer_ || !cell || !cell->showsFrameNearBy()) return;
  leaveTimer_ = dispatch_timer_at(seekBegan_ + kLongSeek, dispatch_get_main_queue(),
                                  [weakSelf = weak_from_this()] {
                                    const auto self = weakSelf.lock();
                                    if (self && std::exchange(self->leaveTimer_, nullptr))
                                      self->seekNext();
                                  });
}

// Volume

void PlaybackControl::setVolume(double volume) {
  percent_ = std::clamp(static_cast<int>(std::lround(volume * 100)), 0, 100);
  isMuted_ = false;
  applyVolume();
}

void PlaybackControl::changeVolume(int percent) {
  setVolume((percent_ + percent) / 100.0);
}

void PlaybackControl::toggleMute() {
  isMuted_ = !isMuted_;
  applyVolume();
}

void PlaybackControl::applyVolume() {
  controller_->setVolume(isMuted_ ? 0.0f : static_cast<float>(percent_) / 100.0f);
}

}  // namespace zaffo::feed
