// SPDX-License-Identifier: Apache-2.0
#include "pool/PlayerRequest.h"

#include <utility>

#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"

namespace zaffo {

PlayerLoadResult successResult(const std::shared_ptr<PlayerManager>& manager,
                               const PlayerInfo& record) {
  auto handle = std::make_shared<PlayerDecorator>(manager, record.player());
  const auto video = record.video();
  return PlayerLoadResult::Success{std::move(handle), video ? video->itemDuration() : kCMTimeZero};
}

std::shared_ptr<PlayerRequest> PlayerRequest::create(std::weak_ptr<PlayerManager> manager,
                                                     std::weak_ptr<PlayerInfo> record,
                                                     Completion completion) {
  return std::make_shared<PlayerRequest>(Private{}, std::move(manager), std::move(record),
                                         std::move(completion));
}

PlayerRequest::PlayerRequest(Private, std::weak_ptr<PlayerManager> manager,
                             std::weak_ptr<PlayerInfo> record, Completion completion)
    : manager_(std::move(manager)),
      record_(std::move(record)),
      handler_{[this](const NSErrorPtr& error) { loadEnded(error); }},
      completion_(std::move(completion)) {}

PlayerInfo::LoadCompletionHandlerPtr PlayerRequest::handler() {
  return {shared_from_this(), &handler_};
}

void PlayerRequest::loadEnded(const NSErrorPtr& error) {
  const auto manager = manager_.lock();
  const auto record = record_.lock();
  if (!manager || !record || std::exchange(isOver_, true)) return;
  const auto completion = std::exchange(completion_, nullptr);
  if (error) manager->releasePlayer(record->player());
  const PlayerLoadResult result =
      error ? PlayerLoadResult::Failure{error} : successResult(manager, *record);
  if (completion) completion(result);
}

void PlayerRequest::cancel() {
  if (std::exchange(isOver_, true)) return;
  const auto completion = std::exchange(completion_, nullptr);  // Let go of last.
  const auto record = record_.lock();
  if (!record) return;
  record->remove(handler());
  if (const auto manager = manager_.lock()) manager->releasePlayer(record->player());
}

}  // namespace zaffo
