// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "pool/PlayerInfo.h"

namespace zaffo {

class PlayerManager;

/// A handle to the record's player, which takes over a use already counted, and the duration of the
/// record's video. Thread: the pool's.
[[nodiscard]] PlayerLoadResult successResult(const std::shared_ptr<PlayerManager>& manager,
                                             const PlayerInfo& record);

/// A request waiting for its record to load; the record counts one use for it. Whichever comes
/// first decides: the end of the load calls the completion, handing over the use or having given it
/// back; a cancel gives the use back and calls nobody. Either way the completion is released, and
/// nothing that comes later has any effect.
///
///     +---------+  loadEnded, cancel   +------+
///     | waiting | -------------------> | over |
///     +---------+                      +------+
///
/// Owned by the record's list of waiters; holds the pool and the record weakly. Once either is gone
/// the completion is never called. Thread: the pool's.
class PlayerRequest : public std::enable_shared_from_this<PlayerRequest> {
  struct Private {};

 public:
  using Completion = std::function<void(const PlayerLoadResult& result)>;

  /// `completion` may be empty.
  [[nodiscard]] static std::shared_ptr<PlayerRequest> create(std::weak_ptr<PlayerManager> manager,
                                                             std::weak_ptr<PlayerInfo> record,
                                                             Completion completion);
  PlayerRequest(Private, std::weak_ptr<PlayerManager> manager, std::weak_ptr<PlayerInfo> record,
                Completion completion);

  /// The handler the record calls at the end of the load; it keeps the request alive. Always the
  /// same one.
  [[nodiscard]] PlayerInfo::LoadCompletionHandlerPtr handler();

  /// Also removes the request from the record's list.
  void cancel();

 private:
  void loadEnded(const NSErrorPtr& error);

  const std::weak_ptr<PlayerManager> manager_;
  const std::weak_ptr<PlayerInfo> record_;
  PlayerInfo::LoadCompletionHandler handler_;
  Completion completion_;
  bool isOver_ = false;
};

}  // namespace zaffo
