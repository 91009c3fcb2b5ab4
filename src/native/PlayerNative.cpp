// SPDX-License-Identifier: Apache-2.0
#include "native/PlayerNative.h"

#include <utility>

#include "native/AVPlayerTimeObserver.h"
#include "native/PlayerNativeOutputView.h"
#include "native/PollingObserver.h"
#include "platform/FatalError.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {

namespace {

NSErrorPtr disposedError() {
  return makePlayerError("The player has been disposed and cannot be used anymore.");
}

void report(const MutablePlayer::LoadCompletion& completion, NSErrorPtr error) {
  if (completion) completion(std::move(error));
}

NSErrorPtr errorOr(NSErrorPtr error, const char* message) {
  return error ? std::move(error) : makePlayerError(message);
}

}  // namespace

std::shared_ptr<PlayerNative> PlayerNative::create() {
  return create(AVPlayer::create());
}

std::shared_ptr<PlayerNative> PlayerNative::create(std::shared_ptr<AVPlayer> player) {
  if (!player) fatalError("AVPlayer could not be created");
  return std::shared_ptr<PlayerNative>(new PlayerNative(std::move(player)));
}

PlayerNative::PlayerNative(std::shared_ptr<AVPlayer> player)
    : player_(std::move(player)), nativeOutputView_(PlayerNativeOutputView::create(player_)) {}

PlayerNative::~PlayerNative() = default;

float PlayerNative::rate() const {
  return player_ ? player_->rate() : 0;
}

void PlayerNative::setRate(float rate) {
  if (player_) player_->setRate(rate);
}

float PlayerNative::volume() const {
  return player_ ? player_->volume() : 0;
}

void PlayerNative::setVolume(float volume) {
  if (player_) player_->setVolume(volume);
}

CMTime PlayerNative::currentTime() const {
  if (!player_) return kCMTimeZero;
  const auto time = player_->currentTime();
  return CMTIME_IS_INVALID(time) || CMTIME_IS_INDEFINITE(time) ? kCMTimeZero : time;
}

void PlayerNative::setCurrentTime(CMTime time) {
  if (player_) player_->seekToTime(time);
}

std::shared_ptr<AVPlayerItem> PlayerNative::playerItem() const {
  return player_ ? player_->currentItem() : nullptr;
}

std::shared_ptr<UIView> PlayerNative::outputView() const {
  return nativeOutputView_;
}

void PlayerNative::seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                              SeekCompletion completion) {
  if (player_) player_->seekToTime(time, toleranceBefore, toleranceAfter, std::move(completion));
}

ZFCancelCommandPtr PlayerNative::addTimeObserver(std::vector<CMTime> boundaries,
                                                 TimeHandler handler) {
  std::shared_ptr<void> token;
  if (player_) {
    token = player_->addBoundaryTimeObserverForTimes(
        std::move(boundaries), dispatch_get_main_queue(),
        [weakPlayer = std::weak_ptr<AVPlayer>(player_), handler = std::move(handler)] {
          if (const auto player = weakPlayer.lock()) handler(player->currentTime());
        });
  }
  return std::make_shared<AVPlayerTimeObserver>(std::move(token), player_);
}

ZFCancelCommandPtr PlayerNative::addTimeObserver(CMTime periodicInterval, TimeHandler handler) {
  std::shared_ptr<void> token;
  if (player_) {
    token = player_->addPeriodicTimeObserverForInterval(periodicInterval, dispatch_get_main_queue(),
                                                        std::move(handler));
  }
  return std::make_shared<AVPlayerTimeObserver>(std::move(token), player_);
}

ZFCancelCommandPtr PlayerNative::loadPlayerItem(std::shared_ptr<AVPlayerItem> item,
                                                LoadCompletion completion) {
  assertMainThread();
  if (!player_) {
    report(completion, disposedError());
    return ZFNoopCancelCommand::sharedInstance();
  }
  const auto weakSelf = weak_from_this();
  cancelCurrentLoad();
  // An item of the other readability is never swapped in directly over the old one.
  const auto currentItem = player_->currentItem();
  if (currentItem && currentItem->asset()->isReadable() != item->asset()->isReadable()) {
    player_->replaceCurrentItemWithPlayerItem(nullptr);
  }
  if (auto refusal = putIntoPlayer(item)) {
    report(completion, std::move(refusal));
    return ZFNoopCancelCommand::sharedInstance();
  }
  waitForItemReadiness(item, std::move(completion));
  return std::make_shared<ZFCallbackCancelCommand>([weakSelf] {
    if (const auto self = weakSelf.lock()) self->cancelCurrentLoad();
  });
}

/// Why the platform rejects the item; null when it accepts it.
NSErrorPtr PlayerNative::putIntoPlayer(const std::shared_ptr<AVPlayerItem>& item) {
  try {
    player_->replaceCurrentItemWithPlayerItem(item);
  } catch (const NSErrorException& refusal) {
    return refusal.error();
  }
  return nullptr;
}

void PlayerNative::waitForItemReadiness(const std::shared_ptr<AVPlayerItem>& item,
                                        LoadCompletion completion) {
  const auto observer = PollingObserver<AVPlayerItemStatus>::create(
      pollingInterval, [item] { return item->status(); },
      [weakSelf = weak_from_this(), item,
       completion = std::move(completion)](AVPlayerItemStatus status) {
        if (const auto self = weakSelf.lock()) self->itemStatusChanged(status, *item, completion);
      });
  pollingObserver_ = observer;
  observer->startObserving();
}

void PlayerNative::itemStatusChanged(AVPlayerItemStatus status, const AVPlayerItem& item,
                                     const LoadCompletion& completion) {
  if (status == AVPlayerItemStatus::Unknown) return;
  if (status == AVPlayerItemStatus::ReadyToPlay) {
    waitForPlayerReadiness(completion);
  } else {
    cancelCurrentLoad();
    report(completion, errorOr(item.error(), "Failed to load item"));
  }
}

void PlayerNative::waitForPlayerReadiness(LoadCompletion completion) {
  stopObserving();
  if (!player_) {
    report(completion, disposedError());
    return;
  }
  auto onChanged = [weakSelf = weak_from_this(), player = player_,
                    completion = std::move(completion)](AVPlayerStatus status) {
    const auto self = weakSelf.lock();
    if (status == AVPlayerStatus::Unknown) return;
    if (status == AVPlayerStatus::Failed) {
      if (self) self->cancelCurrentLoad();
      // Reported whether or not the PlayerNative still exists.
      report(completion, errorOr(player->error(), "Player loading failed"));
    } else if (self) {
      self->stopObserving();
      self->prerollPlayer(completion);
    }
  };
  const auto observer = PollingObserver<AVPlayerStatus>::create(
      pollingInterval, [player = player_] { return player->status(); }, std::move(onChanged));
  pollingObserver_ = observer;
  observer->startObserving();
}

void PlayerNative::prerollPlayer(LoadCompletion completion) {
  if (!player_) {
    report(completion, disposedError());
    return;
  }
  if (player_->rate() > 0 || player_->status() != AVPlayerStatus::ReadyToPlay) {
    report(completion, nullptr);
    return;
  }
  prerolling_ = true;
  const auto number = ++prerollNumber_;
  player_->prerollAtRate(1, [weakSelf = weak_from_this(), number,
                             completion = std::move(completion)](bool /*finished*/) {
    const auto self = weakSelf.lock();
    if (!self || !self->prerolling_ || self->prerollNumber_ != number) return;
    self->prerolling_ = false;
    report(completion, nullptr);
  });
}

void PlayerNative::teardownPlayerItem() {
  assertMainThread();
  cancelCurrentLoad();
  if (player_) player_->replaceCurrentItemWithPlayerItem(nullptr);
}

void PlayerNative::fullTeardown() {
  teardownPlayerItem();
  player_ = nullptr;
  nativeOutputView_->playerLayer()->setPlayer(nullptr);
}

void PlayerNative::stopObserving() {
  if (pollingObserver_) pollingObserver_->stopObserving();
  pollingObserver_ = nullptr;
}

void PlayerNative::cancelCurrentLoad() {
  stopObserving();
  if (std::exchange(prerolling_, false) && player_) player_->cancelPendingPrerolls();
}

}  // namespace zaffo
