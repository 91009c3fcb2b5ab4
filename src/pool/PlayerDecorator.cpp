// SPDX-License-Identifier: Apache-2.0
#include "pool/PlayerDecorator.h"

#include <functional>
#include <utility>

#include "platform/foundation/NSThread.h"
#include "pool/PlayerManager.h"

namespace zaffo {

PlayerDecorator::PlayerDecorator(const std::shared_ptr<PlayerManager>& manager,
                                 const std::shared_ptr<Player>& innerPlayer)
    : innerPlayer_(innerPlayer), manager_(manager) {}

PlayerDecorator::~PlayerDecorator() {
  releaseToManager();
}

void PlayerDecorator::releaseToManager() {
  giveBack(&PlayerManager::releasePlayer);
}

void PlayerDecorator::discardToManager() {
  giveBack(&PlayerManager::discardPlayer);
}

void PlayerDecorator::giveBack(GiveBack operation) {
  isGivenBack_ = true;
  auto manager = manager_.lock();
  if (!manager) return;
  auto player = innerPlayer_.lock();
  if (!player) return;
  // Before telling the pool: what it calls may release or drop this very handle.
  manager_.reset();
  if (NSThread::isMainThread()) {
    std::invoke(operation, *manager, player);
  } else {
    // Both move into the block, so that neither loses its last reference on this thread.
    dispatch_async(dispatch_get_main_queue(),
                   [operation, manager = std::move(manager), player = std::move(player)] {
                     std::invoke(operation, *manager, player);
                   });
  }
}

float PlayerDecorator::rate() const {
  const auto player = innerPlayer();
  return player ? player->rate() : 0;
}

void PlayerDecorator::setRate(float rate) {
  if (const auto player = innerPlayer()) player->setRate(rate);
}

float PlayerDecorator::volume() const {
  const auto player = innerPlayer();
  return player ? player->volume() : 0;
}

void PlayerDecorator::setVolume(float volume) {
  if (const auto player = innerPlayer()) player->setVolume(volume);
}

CMTime PlayerDecorator::currentTime() const {
  const auto player = innerPlayer();
  return player ? player->currentTime() : kCMTimeZero;
}

void PlayerDecorator::setCurrentTime(CMTime time) {
  if (const auto player = innerPlayer()) player->setCurrentTime(time);
}

std::shared_ptr<AVPlayerItem> PlayerDecorator::playerItem() const {
  const auto player = innerPlayer();
  return player ? player->playerItem() : nullptr;
}

std::shared_ptr<UIView> PlayerDecorator::outputView() const {
  if (const auto player = innerPlayer()) return player->outputView();
  if (!emptyOutputView_) emptyOutputView_ = UIView::create();
  return emptyOutputView_;
}

void PlayerDecorator::seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                                 SeekCompletion completion) {
  if (const auto player = innerPlayer()) {
    player->seekToTime(time, toleranceBefore, toleranceAfter, std::move(completion));
  }
}

ZFCancelCommandPtr PlayerDecorator::addTimeObserver(std::vector<CMTime> boundaries,
                                                    TimeHandler handler) {
  const auto player = innerPlayer();
  if (!player) return ZFNoopCancelCommand::sharedInstance();
  return player->addTimeObserver(std::move(boundaries), std::move(handler));
}

ZFCancelCommandPtr PlayerDecorator::addTimeObserver(CMTime periodicInterval, TimeHandler handler) {
  const auto player = innerPlayer();
  if (!player) return ZFNoopCancelCommand::sharedInstance();
  return player->addTimeObserver(periodicInterval, std::move(handler));
}

bool PlayerDecorator::operator==(const PlayerDecorator& other) const {
  return innerPlayer() == other.innerPlayer();
}

}  // namespace zaffo
