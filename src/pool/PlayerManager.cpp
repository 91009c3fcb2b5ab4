#include "pool/PlayerManager.h"

#include <algorithm>
#include <utility>

#include "companion/Counter.h"
#include "fast/PlayerFast.h"
#include "native/AVPlayerLayerContainer.h"
#include "native/PlayerNative.h"
#include "native/PlayerNativeOutputView.h"
#include "platform/avfoundation/AVAudioSession.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSThread.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerInfo.h"

namespace zaffo {

namespace {

PlayerLoadResult noPlayerAvailable() {
  return PlayerLoadResult::Failure{makePlayerError("No player available for this video")};
}

}  // namespace

std::shared_ptr<PlayerManager> PlayerManager::create() {
  return create([](PlayerKind kind) -> std::shared_ptr<MutablePlayer> {
    if (kind == PlayerKind::Fast) return PlayerFast::create();
    return PlayerNative::create();
  });
}

std::shared_ptr<PlayerManager> PlayerManager::create(PlayerFactory playerFactory) {
  const std::shared_ptr<PlayerManager> manager(new PlayerManager(std::move(playerFactory)));
  manager->observeMediaServicesReset();
  return manager;
}

PlayerManager::PlayerManager(PlayerFactory playerFactory)
    : playerFactory_(std::move(playerFactory)) {}

void PlayerManager::observeMediaServicesReset() {
  NSNotificationCenter::defaultCenter().addObserver(
      weak_from_this(), AVAudioSessionMediaServicesWereResetNotification, nullptr,
      [this](const NSNotification&) { mediaServicesWereReset(); });
}

PlayerManager::~PlayerManager() {
  NSNotificationCenter::defaultCenter().removeObserver(this);
  PlayerManager::cleanUpWithMaxPlayers(0);
}

bool PlayerManager::mainThreadIsIdle() const {
  return mainThreadIsIdle_;
}

void PlayerManager::setMainThreadIsIdle(bool isIdle) {
  assertMainThread();
  mainThreadIsIdle_ = isIdle;
  cleanUpIfNeeded();
}

std::int64_t PlayerManager::maxAllowedConcurrentPlayers() const {
  return maxAllowedConcurrentPlayers_;
}

void PlayerManager::setMaxAllowedConcurrentPlayers(std::int64_t bound) {
  assertMainThread();
  maxAllowedConcurrentPlayers_ = bound;
  cleanUpIfNeeded();
}

std::int64_t PlayerManager::maxPlayersAtIdleState() const {
  return maxPlayersAtIdleState_;
}

void PlayerManager::setMaxPlayersAtIdleState(std::int64_t bound) {
  assertMainThread();
  maxPlayersAtIdleState_ = bound;
  cleanUpIfNeeded();
}

bool PlayerManager::useFastPlayer() const {
  return useFastPlayer_;
}

void PlayerManager::setUseFastPlayer(bool use) {
  assertMainThread();
  if (std::exchange(useFastPlayer_, use) != use) removeAllPlayers();
}

std::int64_t PlayerManager::activeMaxPlayers() const {
  return mainThreadIsIdle_ ? std::min(maxAllowedConcurrentPlayers_, maxPlayersAtIdleState_)
                           : maxAllowedConcurrentPlayers_;
}

PlayerState PlayerManager::playerState(const std::shared_ptr<ZFVideo>& video) const {
  assertMainThread();
  const auto videoId = video->videoId();
  for (const auto& record : players_) {
    if (record->video() && record->video()->videoId() == videoId) return record->state();
  }
  return PlayerState::NotLoaded;
}

PlayerLoadResult PlayerManager::player(const std::shared_ptr<ZFVideo>& video,
                                       AVPlayerItemLoaderOptions options) {
  assertMainThread();
  const auto found = std::find_if(players_.begin(), players_.end(), [&](const auto& record) {
    return record->state() != PlayerState::NotLoaded && record->holds(*video, options);
  });
  if (found == players_.end()) {
    return noPlayerAvailable();
  }
  const auto record = takeRecord(found - players_.begin());
  markPlayerInfoAsInUse(record);
  return successResult(*record);
}

std::shared_ptr<PlayerInfo> PlayerManager::dequeueAvailablePlayer(
    std::optional<PlayerSupportedItemType> supportedItemType) {
  const auto found = std::find_if(players_.rbegin(), players_.rend(), [&](const auto& record) {
    return record->activeUses() == 0 &&
           (!supportedItemType || record->supportedItemType() == *supportedItemType);
  });
  return found == players_.rend() ? nullptr : takeRecord(players_.rend() - found - 1);
}

std::shared_ptr<PlayerInfo> PlayerManager::dequeuePlayer(const std::shared_ptr<ZFVideo>& video,
                                                         PlayerSupportedItemType type,
                                                         AVPlayerItemLoaderOptions options) {
  bool isNew = false;
  auto record = takeRecordHolding(*video, options);
  if (!record) record = dequeueAvailablePlayer(type);
  if (!record && std::ssize(players_) < activeMaxPlayers()) {
    record = makeRecord(type);
    isNew = true;
  }
  if (!record && !players_.empty()) record = takeRecord(std::ssize(players_) - 1);
  if (!record) return nullptr;
  if (!record->holds(*video, options)) record->reuse(video, options);
  markPlayerInfoAsInUse(record);
  if (isNew) cleanUpIfNeeded();
  return record;
}

std::shared_ptr<PlayerInfo> PlayerManager::takeRecord(std::ptrdiff_t index) {
  const auto position = players_.begin() + index;
  auto record = std::move(*position);
  players_.erase(position);
  return record;
}

std::shared_ptr<PlayerInfo> PlayerManager::takeRecordHolding(const ZFVideo& video,
                                                             AVPlayerItemLoaderOptions options) {
  const auto found = std::find_if(players_.begin(), players_.end(), [&](const auto& record) {
    return record->holds(video, options);
  });
  return found == players_.end() ? nullptr : takeRecord(found - players_.begin());
}

std::shared_ptr<PlayerInfo> PlayerManager::makeRecord(PlayerSupportedItemType type) {
  const auto id = std::exchange(playerIdSequence_, incremented(playerIdSequence_));
  const bool isFast = useFastPlayer_ && type == PlayerSupportedItemType::Local;
  return std::make_shared<PlayerInfo>(
      id, type, playerFactory_(isFast ? PlayerKind::Fast : PlayerKind::Native));
}

void PlayerManager::markPlayerInfoAsInUse(const PlayerInfoPtr& record) {
  record->acquireOwnership();
  players_.insert(players_.begin(), record);
}

PlayerLoadResult PlayerManager::successResult(const PlayerInfo& record) {
  return PlayerLoadResult::Success{
      std::make_shared<PlayerDecorator>(shared_from_this(), record.player()),
      record.video() ? record.video()->itemDuration() : kCMTimeZero};
}

ZFCancelCommandPtr PlayerManager::loadPlayer(const std::shared_ptr<ZFVideo>& video,
                                             std::shared_ptr<AVPlayerItem> playerItem,
                                             AVPlayerItemLoaderOptions options,
                                             LoadCompletion completion) {
  assertMainThread();
  const auto type = playerItem->asset()->isReadable() ? PlayerSupportedItemType::Local
                                                      : PlayerSupportedItemType::Streaming;
  const auto record = dequeuePlayer(video, type, options);
  if (!record) {
    completion(noPlayerAvailable());
    return ZFNoopCancelCommand::sharedInstance();
  }
  if (record->state() == PlayerState::Loaded) {
    completion(successResult(*record));
    return ZFNoopCancelCommand::sharedInstance();
  }

  const auto weakManager = weak_from_this();
  const std::weak_ptr<PlayerInfo> weakRecord = record;
  const auto releaseBlock = std::make_shared<ZFCancellableBlock>([weakManager, weakRecord] {
    const auto manager = weakManager.lock();
    const auto strongRecord = weakRecord.lock();
    if (manager && strongRecord) manager->releasePlayer(strongRecord->player());
  });
  const auto handler =
      std::make_shared<PlayerInfo::LoadCompletionHandler>(PlayerInfo::LoadCompletionHandler{
          [weakManager, weakRecord, releaseBlock,
           completion = std::move(completion)](const std::shared_ptr<const NSError>& error) {
            const auto manager = weakManager.lock();
            const auto strongRecord = weakRecord.lock();
            if (!manager || !strongRecord) return;
            if (error) {
              releaseBlock->run();
              completion(PlayerLoadResult::Failure{error});
            } else {
              releaseBlock->cancel();
              completion(manager->successResult(*strongRecord));
            }
          }});
  record->add(handler);
  if (record->state() == PlayerState::NotLoaded) startLoad(record, std::move(playerItem));
  return std::make_shared<ZFCallbackCancelCommand>([weakRecord, handler, releaseBlock] {
    if (const auto strongRecord = weakRecord.lock()) strongRecord->remove(handler);
    releaseBlock->run();
  });
}

void PlayerManager::startLoad(const PlayerInfoPtr& record, std::shared_ptr<AVPlayerItem> item) {
  record->setState(PlayerState::Loading);
  auto command = record->player()->loadPlayerItem(
      std::move(item), [weakRecord = std::weak_ptr<PlayerInfo>(record)](
                           const std::shared_ptr<const NSError>& error) {
        const auto strongRecord = weakRecord.lock();
        if (!strongRecord) return;
        strongRecord->setLoadCommand(nullptr);
        strongRecord->setState(error ? PlayerState::NotLoaded : PlayerState::Loaded);
        strongRecord->notifyCompletionHandlers(error);
      });
  // Stored last, also when the load has ended inside the call: the command of a finished load stays
  // until the record is reused, and cancelling it then is harmless.
  record->setLoadCommand(std::move(command));
}

std::shared_ptr<AVPlayerLayerContainer> PlayerManager::playerLayerContainerForVideo(
    const std::shared_ptr<ZFVideo>& video, AVPlayerItemLoaderOptions options) {
  const auto handle = player(video, options).player();
  if (!handle) return nullptr;
  const auto view = std::dynamic_pointer_cast<PlayerNativeOutputView>(handle->outputView());
  if (!view) return nullptr;
  view->removeFromSuperview();
  return std::make_shared<AVPlayerLayerContainer>(handle, view->playerLayer());
}

void PlayerManager::releasePlayer(const std::shared_ptr<Player>& player) {
  const auto index = indexForPlayer(*player);
  if (index < 0) return;
  const auto record = players_[static_cast<std::size_t>(index)];
  record->releaseOwnership();
  cleanUpIfNeeded();
  if (record->state() == PlayerState::Loaded && record->activeUses() == 0 &&
      indexForPlayer(*player) >= 0) {
    record->player()->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, [](bool) {});
  }
}

std::ptrdiff_t PlayerManager::indexForPlayer(const Player& player) const {
  const auto found = std::find_if(players_.begin(), players_.end(), [&](const auto& record) {
    return record->player().get() == &player;
  });
  return found == players_.end() ? -1 : found - players_.begin();
}

void PlayerManager::removeAllPlayers() {
  cleanUpWithMaxPlayers(0);
}

void PlayerManager::mediaServicesWereReset() {
  removeAllPlayers();
}

void PlayerManager::cleanUpIfNeeded() {
  cleanUpWithMaxPlayers(activeMaxPlayers());
}

void PlayerManager::cleanUpWithMaxPlayers(std::int64_t maxPlayers) {
  while (!players_.empty() && std::ssize(players_) > maxPlayers) teardownNextPlayer();
}

void PlayerManager::teardownNextPlayer() {
  auto record = PlayerManager::dequeueAvailablePlayer(std::nullopt);
  if (!record) record = takeRecord(std::ssize(players_) - 1);
  record->player()->fullTeardown();
}

std::string PlayerManager::debugDescription() const {
  std::string text;
  for (const auto& record : players_) {
    if (!text.empty()) text += '\n';
    text += record->debugDescription();
  }
  return text;
}

}  // namespace zaffo
