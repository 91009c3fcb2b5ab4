// SPDX-License-Identifier: Apache-2.0
#include "cell/PlayerCell.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "cell/FailureText.h"

namespace zaffo::feed {

using State = PlayerLoan::State;

namespace {

// Seconds between tries of a video that the network did not give.
constexpr int64_t kFirstPause = 2;
constexpr int64_t kLongestPause = 30;

}  // namespace

PlayerCell::PlayerCell(Private, const std::shared_ptr<PlayerManager>& manager,
                       std::shared_ptr<FeedVideo> video, Style style)
    : video_(std::move(video)),
      style_(std::move(style)),
      page_(FeedPage::create(style_.density)),
      loan_(PlayerLoan::create(manager, video_)),
      thumbnail_(std::make_shared<Thumbnail>()) {}

std::shared_ptr<PlayerCell> PlayerCell::create(const std::shared_ptr<PlayerManager>& manager,
                                               std::shared_ptr<FeedVideo> video, Style style) {
  auto cell = std::make_shared<PlayerCell>(Private{}, manager, std::move(video), std::move(style));
  cell->loan_->setLoadedHandler([weakSelf = std::weak_ptr<PlayerCell>(cell)] {
    if (const auto self = weakSelf.lock()) self->loanChanged();
  });
  return cell;
}

void PlayerCell::setSettledHandler(std::function<void()> handler) {
  settledHandler_ = std::move(handler);
}

void PlayerCell::loadThumbnail() {
  thumbnail_->load(*video_, style_.thumbnailSize, [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->thumbnailChanged();
  });
}

void PlayerCell::thumbnailChanged() {
  page_->setThumbnail(thumbnail_->image());
  if (loan_->state() == State::Failed) showFailure();
}

// Loading

void PlayerCell::load() {
  if (loan_->state() != State::Empty) return;
  // The sound of a video loaded as it comes into view rises from silence.
  loan_->request(swipe_ ? AVPlayerItemLoaderOptions::fadeIn : AVPlayerItemLoaderOptions());
  if (loan_->state() == State::Ready) return loanChanged();
  loadThumbnail();
}

void PlayerCell::unload() {
  if (loan_->state() == State::Empty) return;
  hidePlayer();
  loan_->giveBack();
  page_->setText({});
}

void PlayerCell::checkPlayer() {
  const State before = loan_->state();
  loan_->check();
  if (before == State::Empty || loan_->state() != State::Empty) return;
  hidePlayer();
  page_->setText({});
}

/// Why the player's item cannot be played although the player was handed out; null when it can. A
/// load waiting for the first picture succeeds even when none comes.
NSErrorPtr PlayerCell::itemError() const {
  const auto item = loan_->player() ? loan_->player()->playerItem() : nullptr;
  return item && item->status() == AVPlayerItemStatus::Failed ? item->error() : nullptr;
}

/// A fast player drops an item that fails, and its layer, while the pool takes it for loaded.
bool PlayerCell::hasLostItem() const {
  return loan_->player() && !loan_->player()->playerItem();
}

void PlayerCell::loanChanged() {
  if (const auto error = itemError()) {
    failure_ = error;
    loan_->fail(error->localizedDescription());
  }
  if (hasLostItem()) loan_->fail({});
  if (loan_->state() == State::Ready) {
    showPlayer();
  } else {
    showFailure();
  }
  if (isSettled() && settledHandler_) settledHandler_();
}

bool PlayerCell::isSettled() const {
  if (loan_->state() == State::Ready) return true;
  // The text of a failure waits for what the thumbnail says about it.
  return loan_->state() == State::Failed && !page_->text().empty();
}

// The player on the page

void PlayerCell::showPlayer() {
  const auto& player = loan_->player();
  const auto view = player->outputView();
  view->setContentMode(UIViewContentMode::ScaleAspectFit);
  page_->setText({});
  failure_ = nullptr;
  stopTrying();
  page_->setPlayerView(view);
  tally_.watch(view);
  isAtStart_ = true;
  PagePlayback::Events events;
  events.failed = [weakSelf = weak_from_this()](const std::string& reason) {
    if (const auto self = weakSelf.lock()) self->failOnTheWay(reason);
  };
  events.ended = [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->playbackEnded();
  };
  playback_ = PagePlayback::create(player, std::move(events));
  if (swipe_) startPlaying();
}

void PlayerCell::hidePlayer() {
  noteFrameCounts();
  tally_.forget();
  playback_ = nullptr;
  isOnScreen_ = isAtEnd_ = false;
  page_->setPlayerView(nullptr);
  page_->setThumbnailHidden(false);
}

void PlayerCell::startPlaying() {
  if (!swipe_->completed) swipe_->completed = TimeSource::now();
  const auto& player = loan_->player();
  player->setVolume(volume_);
  if (!isAtStart_) rewind();
  applyRate();
  isAtStart_ = false;
}

/// A fast player has no picture until its first frame is there again. Until then the page shows the
/// thumbnail, which looks the same.
void PlayerCell::rewind() {
  page_->setThumbnailHidden(false);
  isAtEnd_ = false;
  playback_->rewind();
}

/// A page that is not in view stands still, too.
void PlayerCell::applyRate() {
  if (playback_) playback_->setRate(swipe_ && !isHeld_ ? rate_ : 0);
}

void PlayerCell::playbackEnded() {
  if (!swipe_) return;
  if (tally_.firstPresented() == 0 && !playback_->hasPicture()) return failOnTheWay({});
  isAtEnd_ = !style_.loops;
  if (style_.loops) rewind();
}

void PlayerCell::failOnTheWay(std::string reason) {
  failure_ = itemError();
  hidePlayer();
  loan_->fail(std::move(reason));
  loanChanged();
}

void PlayerCell::showFailure() {
  if (thumbnail_->state() == Thumbnail::State::Unknown ||
      thumbnail_->state() == Thumbnail::State::Loading) {
    return loadThumbnail();
  }
  const std::string reason =
      loan_->reason().empty() ? failureText(thumbnail_->error()) : loan_->reason();
  const bool isTriedAgain = swipe_ && mayPass(failure_ ? failure_ : thumbnail_->error());
  page_->setThumbnailHidden(true);
  page_->setText(video_->name() + "\n\n" + reason +
                 (isTriedAgain ? "\nIt is tried again in a moment." : ""));
  if (isTriedAgain) tryAgainSoon();
  if (swipe_ && swipe_->error.empty()) {
    swipe_->error = reason;
    std::fprintf(stderr, "zaffo-feed: %s: %s\n", video_->name().c_str(), reason.c_str());
  }
  if (settledHandler_) settledHandler_();
}

void PlayerCell::tryAgainSoon() {
  constexpr int64_t kSecond = 1'000'000'000;
  if (nextTry_) nextTry_->cancel();
  pause_ = pause_ == 0 ? kFirstPause * kSecond : std::min(2 * pause_, kLongestPause * kSecond);
  nextTry_ = dispatch_timer_after(pause_, dispatch_get_main_queue(), [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->tryAgain();
  });
}

/// The text stays until there is a picture, or another text.
void PlayerCell::tryAgain() {
  if (!swipe_ || loan_->state() != State::Failed) return;
  failure_ = nullptr;
  thumbnail_->forgetFailure();
  loan_->giveBack();
  load();
}

void PlayerCell::stopTrying() {
  if (nextTry_) nextTry_->cancel();
  nextTry_ = nullptr;
  pause_ = 0;
}

// In view

void PlayerCell::becomeCurrent(std::shared_ptr<Swipe> swipe, float volume) {
  stopTrying();
  noteFrameCounts();  // what was seen of it as a neighbour is not part of any record
  swipe_ = std::move(swipe);
  rate_ = 1;
  volume_ = volume;
  isOnScreen_ = false;
  if (loan_->state() == State::Failed) {  // it may work by now
    thumbnail_->forgetFailure();
    unload();
  }
  loan_->renew();
  if (loan_->state() == State::Ready) {
    swipe_->warm = true;
    swipe_->completed = TimeSource::now();
    startPlaying();
    return;
  }
  hidePlayer();
  load();
  swipe_->warm = loan_->state() == State::Ready;
}

void PlayerCell::resignCurrent() {
  stopTrying();
  noteFrameCounts();
  swipe_ = nullptr;
  applyRate();
}

void PlayerCell::scrollingEnded() {
  if (swipe_ || loan_->state() != State::Ready) return;
  if (!std::exchange(isAtStart_, true)) rewind();
}

void PlayerCell::didPresent(int64_t hostNanoseconds) {
  if (loan_->state() != State::Ready || tally_.firstPresented() == 0) return;
  page_->setThumbnailHidden(playback_->hasPicture());
  playback_->didPresent();
  if (swipe_ && hostNanoseconds >= swipe_->requested) noteFirstFrame(hostNanoseconds);
}

void PlayerCell::noteFirstFrame(int64_t hostNanoseconds) {
  isOnScreen_ = true;
  if (swipe_->firstFrame) return;
  const int64_t first = tally_.firstPresented();
  // A picture shown before the page was asked for came on screen with the page.
  swipe_->firstFrame = first >= swipe_->requested ? first : hostNanoseconds;
}

void PlayerCell::noteFrameCounts() {
  const uint64_t shown = tally_.takeShown();
  const uint64_t dropped = tally_.takeDropped();
  if (!swipe_) return;
  swipe_->framesShown += shown;
  swipe_->framesDropped += dropped;
}

bool PlayerCell::isShown() const {
  return isOnScreen_ || (loan_->state() == State::Failed && isSettled());
}

void PlayerCell::setRate(float rate) {
  rate_ = rate;
  if (swipe_) applyRate();
}

void PlayerCell::togglePlaying() {
  if (!isAtEnd_) return setRate(rate_ > 0 ? 0.0f : 1.0f);
  rewind();
  setRate(1);
}

void PlayerCell::setHeld(bool held) {
  isHeld_ = held;
  if (swipe_) applyRate();
}

bool PlayerCell::isPlaying() const {
  return swipe_ && playback_ && !isHeld_ && rate_ > 0 && !isAtEnd_;
}

std::optional<ClipPosition> PlayerCell::position() const {
  const auto& player = loan_->player();
  const auto item = player ? player->playerItem() : nullptr;
  if (!item) return std::nullopt;
  const double whole = CMTimeGetSeconds(item->duration());
  const double round = video_->roundSeconds().value_or(whole);
  const double time = std::max(CMTimeGetSeconds(player->currentTime()), 0.0);
  if (!std::isfinite(time) || !std::isfinite(round) || !(round > 0)) return std::nullopt;
  const double last = std::max(std::ceil(whole / round - 1e-6) - 1, 0.0);
  const double start = round * std::min(std::floor(time / round), last);
  return ClipPosition{std::min(time - start, round), round, start};
}

void PlayerCell::setVolume(float volume) {
  volume_ = volume;
  if (const auto& player = loan_->player()) player->setVolume(volume);
}

void PlayerCell::seek(CMTime time, std::function<void()> completion) {
  const auto& player = loan_->player();
  if (!playback_ || !player || !player->playerItem()) return completion();
  isAtStart_ = isAtEnd_ = false;
  playback_->seek(time, std::move(completion));
}

}  // namespace zaffo::feed
