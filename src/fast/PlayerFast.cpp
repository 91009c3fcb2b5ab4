// SPDX-License-Identifier: Apache-2.0
#include "fast/PlayerFast.h"

#include <utility>

#include "fast/PlayerFastOutputView.h"
#include "platform/Trace.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {

namespace {

/// Layers belong to the main thread: from any other, the block is queued there.
void onMainThread(DispatchBlock block) {
  if (NSThread::isMainThread()) {
    block();
  } else {
    dispatch_get_main_queue()->async(std::move(block));
  }
}

}  // namespace

std::shared_ptr<PlayerFast> PlayerFast::create(PlaybackSessionFactory factory) {
  return std::shared_ptr<PlayerFast>(new PlayerFast(std::move(factory)));
}

PlayerFast::PlayerFast(PlaybackSessionFactory factory)
    : fastOutputView_(PlayerFastOutputView::create()), factory_(std::move(factory)) {}

PlayerFast::~PlayerFast() {
  if (auto* const session = currentPlaybackSession()) session->stop();
  onMainThread([view = fastOutputView_] { view->setSampleBufferDisplayerLayer(nullptr); });
}

PlaybackSession* PlayerFast::currentPlaybackSession() const {
  return currentSession_;
}

void PlayerFast::setCurrentPlaybackSession(std::shared_ptr<PlaybackSession> session) {
  currentSession_ = session.get();
  heldSession_ = std::move(session);
}

float PlayerFast::rate() const {
  const auto* const session = currentPlaybackSession();
  return session ? static_cast<float>(session->rate()) : 0;
}

void PlayerFast::setRate(float rate) {
  if (auto* const session = currentPlaybackSession()) session->setRate(rate);
}

CMTime PlayerFast::currentTime() const {
  const auto* const session = currentPlaybackSession();
  return session ? session->currentTime() : kCMTimeZero;
}

void PlayerFast::setCurrentTime(CMTime time) {
  seekToTime(time, kCMTimeZero, kCMTimeZero, [](bool) {});
}

std::shared_ptr<AVPlayerItem> PlayerFast::playerItem() const {
  const auto* const session = currentPlaybackSession();
  return session ? session->playerItem() : nullptr;
}

std::shared_ptr<UIView> PlayerFast::outputView() const {
  return fastOutputView_;
}

void PlayerFast::seekToTime(CMTime time, CMTime /*toleranceBefore*/, CMTime /*toleranceAfter*/,
                            SeekCompletion completion) {
  auto* const session = currentPlaybackSession();
  if (!session) return;
  session->seek(time, [completion = std::move(completion)](const NSErrorPtr& error) {
    if (completion) completion(error == nullptr);
  });
}

ZFCancelCommandPtr PlayerFast::addTimeObserver(std::vector<CMTime> /*boundaries*/,
                                               TimeHandler /*handler*/) {
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr PlayerFast::addTimeObserver(CMTime /*periodicInterval*/,
                                               TimeHandler /*handler*/) {
  return ZFNoopCancelCommand::sharedInstance();
}

ZFCancelCommandPtr PlayerFast::loadPlayerItem(std::shared_ptr<AVPlayerItem> item,
                                              LoadCompletion completion) {
  const auto isCancelled = std::make_shared<bool>(false);
  const auto command =
      std::make_shared<ZFCallbackCancelCommand>([isCancelled] { *isCancelled = true; });
  if (currentLoadCommand_) currentLoadCommand_->cancel();
  currentLoadCommand_ = command;
  teardownSession();
  const auto session = PlaybackSession::create(std::move(item), factory_);
  session->start([weakSelf = weak_from_this(), isCancelled, session,
                  completion = std::move(completion)](const NSErrorPtr& error) {
    dispatch_get_main_queue()->async([weakSelf, isCancelled, session, completion, error] {
      const auto self = weakSelf.lock();
      if (*isCancelled || !self) {
        if (!error) session->stop();
        return;
      }
      if (!error) self->sessionDidStart(session);
      if (completion) completion(error);
    });
  });
  return command;
}

void PlayerFast::sessionDidStart(const std::shared_ptr<PlaybackSession>& session) {
  session->setDelegate(shared_from_this());
  setCurrentPlaybackSession(session);
  fastOutputView_->setSampleBufferDisplayerLayer(session->displayLayer());
}

void PlayerFast::teardownPlayerItem() {
  teardownSession();
}

void PlayerFast::fullTeardown() {
  teardownSession();
}

void PlayerFast::teardownSession() {
  if (auto* const session = currentPlaybackSession()) session->stop();
  setCurrentPlaybackSession(nullptr);
  fastOutputView_->setSampleBufferDisplayerLayer(nullptr);
}

void PlayerFast::playbackSession(const std::shared_ptr<PlaybackSession>& session,
                                 const NSErrorPtr& error) {
  auto* failed = session.get();
  if (!failed || !currentSession_.compare_exchange_strong(failed, nullptr)) return;
  session->stop();
  onMainThread([weakSelf = weak_from_this(), session] {
    const auto self = weakSelf.lock();
    if (self && self->heldSession_ == session) self->teardownSession();
  });
  trace("PlayerFast: Error with PlaybackSession (" + error->description() +
        "). Player needs to be re-loaded again.");
}

}  // namespace zaffo
