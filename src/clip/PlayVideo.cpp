// SPDX-License-Identifier: Apache-2.0
#include "clip/PlayVideo.h"

#include <optional>
#include <utility>

#include "clip/ItemAnswer.h"
#include "platform/dispatch/DispatchQueue.h"
#include "pool/PlayerDecorator.h"

namespace zaffo {

namespace {

/// Asked for where only its error is of interest.
constexpr CGSize kSmallThumbnail{16, 16};

/// A video on its way from its loader to a player of the pool. Thread: main.
class PlayRequest final : public ZFCancelCommand, public std::enable_shared_from_this<PlayRequest> {
 public:
  PlayRequest(const std::shared_ptr<PlayerManager>& pool, std::shared_ptr<ZFVideo> video,
              PlayerManager::LoadCompletion completion)
      : pool_(pool), video_(std::move(video)), completion_(std::move(completion)) {}

  void start() {
    const auto pool = pool_.lock();
    if (pool && pool->playerState(video_) == PlayerState::Loaded) {
      const PlayerLoadResult held = pool->player(video_, {});
      if (held.player()) return end(held);
    }
    loadItem();
  }

  void cancel() override {
    completion_ = nullptr;
    video_ = nullptr;
    if (const auto command = std::exchange(command_, nullptr)) command->cancel();
  }

 private:
  void loadItem();
  void itemLoaded(const std::shared_ptr<AVPlayerItem>& item);
  void askWhyThereIsNone();
  void end(const PlayerLoadResult& result);
  void fail(NSErrorPtr error) { end(PlayerLoadResult::Failure{std::move(error)}); }

  const std::weak_ptr<PlayerManager> pool_;
  std::shared_ptr<ZFVideo> video_;            ///< null once it is over: it may hold this
  PlayerManager::LoadCompletion completion_;  ///< empty once it was called, or cancelled
  ZFCancelCommandPtr command_;                ///< of the step under way
};

void PlayRequest::loadItem() {
  const auto video = video_;  // which may cancel this inside the call
  command_ = video->loadAVPlayerItemWithOptions(
      {},
      answeringOnMainQueue([self = shared_from_this()](const std::optional<ItemAnswer>& answer) {
        self->itemLoaded(answer ? answer->item : nullptr);
      }));
}

void PlayRequest::itemLoaded(const std::shared_ptr<AVPlayerItem>& item) {
  if (!completion_) return;
  command_ = nullptr;
  if (!item) return askWhyThereIsNone();
  const auto pool = pool_.lock();
  if (!pool) return cancel();
  const auto video = video_;  // the pool may answer inside the call
  const bool needsRoom = pool->playerState(video) == PlayerState::NotLoaded;
  if (needsRoom && !pool->makeRoom(*item)) {
    return fail(makePlayerError("No player available for this video"));
  }
  auto command = pool->loadPlayer(
      video, item, {},
      [self = shared_from_this()](const PlayerLoadResult& result) { self->end(result); });
  if (completion_) command_ = std::move(command);
}

void PlayRequest::askWhyThereIsNone() {
  const auto video = video_;
  command_ = video->loadThumbnailWithPriority(
      0, kSmallThumbnail,
      [self = shared_from_this()](const std::shared_ptr<const UIImage>&, NSErrorPtr error) {
        if (!error) error = makePlayerError("Nothing that can be played can be made of this video");
        dispatch_async(dispatch_get_main_queue(),
                       [self, error = std::move(error)] { self->fail(error); });
      });
}

void PlayRequest::end(const PlayerLoadResult& result) {
  command_ = nullptr;
  const auto completion = std::exchange(completion_, nullptr);
  video_ = nullptr;
  if (!completion) return;
  if (const auto player = result.player()) player->setRate(1);
  completion(result);
}

}  // namespace

ZFCancelCommandPtr play(const std::shared_ptr<PlayerManager>& pool, std::shared_ptr<ZFVideo> video,
                        std::function<void(const PlayerLoadResult& result)> completion) {
  if (!completion) return ZFNoopCancelCommand::sharedInstance();
  const auto request = std::make_shared<PlayRequest>(pool, std::move(video), std::move(completion));
  request->start();
  return request;
}

}  // namespace zaffo
