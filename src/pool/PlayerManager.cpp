// SPDX-License-Identifier: Apache-2.0
#include "pool/PlayerManager.h"

#include <algorithm>
#include <utility>

#include "platform/FatalError.h"
#include "platform/avfoundation/AVAudioSession.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSThread.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerInfo.h"
#include "pool/PlayerRequest.h"

namespace zaffo {

namespace {

PlayerLoadResult failureSaying(const char* message) {
  return PlayerLoadResult::Failure{makePlayerError(message)};
}

PlayerLoadResult noPlayerAvailable() {
  return failureSaying("No player available for this video");
}

PlayerSupportedItemType typeOf(const AVPlayerItem& item) {
  return item.asset()->isReadable() ? PlayerSupportedItemType::Local
                                    : PlayerSupportedItemType::Streaming;
}

/// Answers a request inside its call, so that there is nothing to cancel.
ZFCancelCommandPtr answerAtOnce(const PlayerManager::LoadCompletion& completion,
                                const PlayerLoadResult& result) {
  if (completion) completion(result);
  return ZFNoopCancelCommand::sharedInstance();
}

}  // namespace

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

// Finding.

std::shared_ptr<PlayerInfo> PlayerManager::findRecord(
    const std::function<bool(const PlayerInfo& record)>& matches) const {
  // Searches a copy: a video asked for its id may call back into the pool.
  const auto records = players_;
  const auto found = std::find_if(records.begin(), records.end(),
                                  [&](const auto& record) { return matches(*record); });
  return found == records.end() ? nullptr : *found;
}

std::shared_ptr<PlayerInfo> PlayerManager::recordOf(const std::shared_ptr<Player>& player) const {
  return findRecord([&](const PlayerInfo& record) { return record.player() == player; });
}

std::shared_ptr<PlayerInfo> PlayerManager::takeRecord(PlayerInfoPtr record) {
  return std::erase(players_, record) > 0 ? std::move(record) : nullptr;
}

PlayerState PlayerManager::playerState(const std::shared_ptr<ZFVideo>& video) const {
  assertMainThread();
  const auto alive = weak_from_this().lock();
  const auto record = findRecord([&](const PlayerInfo& info) { return info.holds(*video); });
  return record ? record->state() : PlayerState::NotLoaded;
}

PlayerLoadResult PlayerManager::player(const std::shared_ptr<ZFVideo>& video,
                                       AVPlayerItemLoaderOptions options) {
  assertMainThread();
  const auto alive = shared_from_this();
  const auto record = takeRecord(findRecord([&](const PlayerInfo& info) {
    return info.state() != PlayerState::NotLoaded && info.holds(*video, options);
  }));
  if (!record) return noPlayerAvailable();
  markPlayerInfoAsInUse(record);
  return successResult(alive, *record);
}

std::shared_ptr<PlayerInfo> PlayerManager::dequeueAvailablePlayer(
    std::optional<PlayerSupportedItemType> supportedItemType) {
  const auto found = std::find_if(players_.rbegin(), players_.rend(), [&](const auto& record) {
    return record->activeUses() == 0 &&
           (!supportedItemType || record->supportedItemType() == *supportedItemType);
  });
  return found == players_.rend() ? nullptr : takeRecord(*found);
}

std::shared_ptr<PlayerInfo> PlayerManager::dequeuePlayer(const std::shared_ptr<ZFVideo>& video,
                                                         PlayerSupportedItemType type,
                                                         AVPlayerItemLoaderOptions options) {
  const auto holdsVideo = [&](const PlayerInfo& info) { return info.holds(*video, options); };
  bool isNew = false;
  auto record = takeRecord(findRecord(holdsVideo));
  if (!record) record = dequeueAvailablePlayer(type);
  if (!record && playerCount() < activeMaxPlayers()) {
    record = makeRecord(type);
    isNew = true;
  }
  if (!record && !players_.empty()) record = takeRecord(players_.back());
  if (!record) return nullptr;
  if (!holdsVideo(*record)) record->reuse(video, options);
  markPlayerInfoAsInUse(record);
  if (isNew) cleanUpIfNeeded();
  return record;
}

std::shared_ptr<PlayerInfo> PlayerManager::makeRecord(PlayerSupportedItemType type) {
  const auto id = playerIdSequence_.next();
  const bool isFast = useFastPlayer_ && type == PlayerSupportedItemType::Local;
  auto player =
      playerFactory_ ? playerFactory_(isFast ? PlayerKind::Fast : PlayerKind::Native) : nullptr;
  if (!player) fatalError("The pool's factory has made no player");
  return std::make_shared<PlayerInfo>(id, type, std::move(player));
}

bool PlayerManager::makeRoom(const AVPlayerItem& item) {
  assertMainThread();
  const auto alive = weak_from_this().lock();
  const auto type = typeOf(item);
  const auto isUsable = [type](const PlayerInfo& info) {
    return info.activeUses() == 0 && info.supportedItemType() == type;
  };
  while (playerCount() >= activeMaxPlayers() && !findRecord(isUsable)) {
    const auto idle = dequeueAvailablePlayer(std::nullopt);
    if (!idle) return false;
    idle->player()->fullTeardown();
  }
  return true;
}

void PlayerManager::markPlayerInfoAsInUse(const PlayerInfoPtr& record) {
  record->acquireOwnership();
  players_.insert(players_.begin(), record);
}

// Loading.

ZFCancelCommandPtr PlayerManager::loadPlayer(const std::shared_ptr<ZFVideo>& video,
                                             std::shared_ptr<AVPlayerItem> playerItem,
                                             AVPlayerItemLoaderOptions options,
                                             LoadCompletion completion) {
  assertMainThread();
  const auto alive = shared_from_this();
  if (!playerItem) {
    return answerAtOnce(completion, failureSaying("No item was given for this video"));
  }
  const auto record = dequeuePlayer(video, typeOf(*playerItem), options);
  if (!record) return answerAtOnce(completion, noPlayerAvailable());
  if (record->state() == PlayerState::Loaded) {
    return answerAtOnce(completion, successResult(alive, *record));
  }
  const auto request = PlayerRequest::create(alive, record, std::move(completion));
  record->add(request->handler());
  if (record->state() == PlayerState::NotLoaded) startLoad(record, std::move(playerItem));
  return std::make_shared<ZFCallbackCancelCommand>([weakRequest = std::weak_ptr(request)] {
    if (const auto waiting = weakRequest.lock()) waiting->cancel();
  });
}

void PlayerManager::startLoad(const PlayerInfoPtr& record, std::shared_ptr<AVPlayerItem> item) {
  record->setState(PlayerState::Loading);
  record->setKeepsItem(true);
  auto command = record->player()->loadPlayerItem(
      std::move(item), [weakRecord = std::weak_ptr<PlayerInfo>(record)](const NSErrorPtr& error) {
        const auto strongRecord = weakRecord.lock();
        if (!strongRecord) return;
        strongRecord->setLoadCommand(nullptr);
        strongRecord->setState(error ? PlayerState::NotLoaded : PlayerState::Loaded);
        strongRecord->notifyCompletionHandlers(error);
      });
  // Stored last, even when the load has ended inside the call: the command of a finished load stays
  // until the record is reused, and cancelling it then is harmless.
  record->setLoadCommand(std::move(command));
}

// Giving back.

void PlayerManager::releasePlayer(const std::shared_ptr<Player>& player) {
  const auto alive = weak_from_this().lock();
  const auto record = recordOf(player);
  if (!record) return;
  record->releaseOwnership();
  cleanUpIfNeeded();
  if (record->state() == PlayerState::Loaded && record->activeUses() == 0 &&
      recordOf(record->player())) {
    record->player()->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, [](bool) {});
  }
}

void PlayerManager::discardPlayer(const std::shared_ptr<Player>& player) {
  if (const auto record = recordOf(player)) record->setKeepsItem(false);
  releasePlayer(player);
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
  // Null in the destructor, where nobody can call back any more.
  const auto alive = weak_from_this().lock();
  while (!players_.empty() && playerCount() > maxPlayers) teardownNextPlayer();
}

void PlayerManager::teardownNextPlayer() {
  auto record = PlayerManager::dequeueAvailablePlayer(std::nullopt);
  if (!record) record = takeRecord(players_.back());
  record->player()->fullTeardown();
}

std::string PlayerManager::debugDescription() const {
  const auto alive = weak_from_this().lock();
  const auto records = players_;  // A video asked for its id may call back into the pool.
  std::string text;
  for (const auto& record : records) {
    if (!text.empty()) text += '\n';
    text += record->debugDescription();
  }
  return text;
}

}  // namespace zaffo
