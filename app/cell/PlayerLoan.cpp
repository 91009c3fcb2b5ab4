// SPDX-License-Identifier: Apache-2.0
#include "cell/PlayerLoan.h"

#include <array>
#include <utility>

namespace zaffo::feed {

namespace {

/// The options a page may hold its player with; the pool tells players apart by them.
constexpr std::array kAllOptions{AVPlayerItemLoaderOptions(), AVPlayerItemLoaderOptions::fadeIn};

constexpr const char* kNoItem = "Nothing that can be played can be made of it.";

/// Runs `block` on the main thread, inside the call if the caller is on it.
void onMainThread(std::function<void()> block) {
  if (NSThread::isMainThread()) return block();
  dispatch_async(dispatch_get_main_queue(), std::move(block));
}

}  // namespace

PlayerLoan::PlayerLoan(Private, std::shared_ptr<PlayerManager> manager,
                       std::shared_ptr<FeedVideo> video)
    : manager_(std::move(manager)), video_(std::move(video)) {}

std::shared_ptr<PlayerLoan> PlayerLoan::create(std::shared_ptr<PlayerManager> manager,
                                               std::shared_ptr<FeedVideo> video) {
  return std::make_shared<PlayerLoan>(Private{}, std::move(manager), std::move(video));
}

PlayerLoan::~PlayerLoan() {
  giveBack();
}

void PlayerLoan::request(AVPlayerItemLoaderOptions options) {
  if (state_ != State::Empty) return;
  ++attempt_;
  options_ = options;
  if (poolState() == PlayerState::Loaded) return takeFromPool();
  loadItem();
}

void PlayerLoan::loadItem() {
  state_ = State::LoadingItem;
  const auto weakSelf = weak_from_this();
  const auto attempt = attempt_;
  // A loader that can make no item from a video may say so by releasing the block uncalled. The
  // destruction of what the block holds reveals that; after a call it is ignored.
  const std::shared_ptr<void> silence(nullptr, [weakSelf, attempt](void*) {
    dispatch_async(dispatch_get_main_queue(), [weakSelf, attempt] {
      if (const auto self = weakSelf.lock()) self->itemMissing(attempt);
    });
  });
  video_->loadAVPlayerItemWithOptions(
      options_, [weakSelf, attempt, silence](const std::shared_ptr<AVPlayerItem>& item,
                                             double round, double whole) {
        onMainThread([weakSelf, attempt, item, round, whole] {
          if (const auto self = weakSelf.lock()) self->itemLoaded(attempt, item, round, whole);
        });
      });
}

void PlayerLoan::takeFromPool() {
  auto result = manager_->player(video_, options_);
  for (const auto options : kAllOptions) {
    if (result.player()) break;
    result = manager_->player(video_, options);
    if (result.player()) options_ = options;
  }
  player_ = result.player();
  state_ = player_ ? State::Ready : State::Empty;
}

void PlayerLoan::itemMissing(uint64_t attempt) {
  if (attempt != attempt_ || state_ != State::LoadingItem) return;
  if (video_->playPlainly()) return loadItem();  // too short to loop, for example
  loadFailed(kNoItem);
}

void PlayerLoan::loadFailed(std::string reason) {
  fail(std::move(reason));
  if (loadedHandler_) loadedHandler_();
}

void PlayerLoan::itemLoaded(uint64_t attempt, const std::shared_ptr<AVPlayerItem>& item,
                            double round, double whole) {
  if (attempt != attempt_ || state_ != State::LoadingItem) return;
  if (!item) return loadFailed({});
  // Otherwise a full pool might take the player of a page that is still waiting for it.
  if (!manager_->makeRoom(*item)) return loadFailed("No player available for this video");
  video_->setItemDuration(item->duration());
  video_->setRounds(round, whole);
  state_ = State::LoadingPlayer;
  auto command =
      manager_->loadPlayer(video_, item, options_,
                           [weakSelf = weak_from_this(), attempt](const PlayerLoadResult& result) {
                             onMainThread([weakSelf, attempt, result] {
                               if (const auto self = weakSelf.lock())
                                 self->playerLoaded(attempt, result);
                             });
                           });
  if (state_ == State::LoadingPlayer) loadCommand_ = std::move(command);
}

void PlayerLoan::playerLoaded(uint64_t attempt, const PlayerLoadResult& result) {
  // Dropping the result of an abandoned request returns the player to the pool.
  if (attempt != attempt_ || state_ != State::LoadingPlayer) return;
  loadCommand_ = nullptr;
  if (const auto error = result.error()) {
    fail(error->localizedDescription());
  } else {
    player_ = result.player();
    state_ = State::Ready;
  }
  if (loadedHandler_) loadedHandler_();
}

void PlayerLoan::renew() {
  if (state_ != State::Ready) return;
  if (poolState() != PlayerState::Loaded) return giveBack();
  const auto held = player_;
  takeFromPool();
  if (!player_ || !(*player_ == *held)) return giveBack();
  player_ = held;  // the playback has that one too, and the use counts once
}

void PlayerLoan::check() {
  const bool dropped = (state_ == State::Ready && poolState() != PlayerState::Loaded) ||
                       (state_ == State::LoadingPlayer && poolState() == PlayerState::NotLoaded);
  if (dropped || state_ == State::Failed) giveBack();
}

void PlayerLoan::giveBack() {
  end(&PlayerDecorator::releaseToManager);
}

void PlayerLoan::fail(std::string reason) {
  end(&PlayerDecorator::discardToManager);  // or the pool would hand out the same item again
  state_ = State::Failed;
  reason_ = std::move(reason);
}

void PlayerLoan::end(void (PlayerDecorator::*operation)()) {
  ++attempt_;
  state_ = State::Empty;
  reason_.clear();
  if (const auto command = std::exchange(loadCommand_, nullptr)) command->cancel();
  const auto player = std::exchange(player_, nullptr);
  if (!player) return;
  // The pool rewinds a player that nobody uses but does not stop it. One that the pool has taken
  // for another video is not this page's to stop.
  if (poolState() == PlayerState::Loaded) player->setRate(0);
  ((*player).*operation)();
}

}  // namespace zaffo::feed
