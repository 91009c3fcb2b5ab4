// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedMutablePlayer.h"
#include "doubles/TestVideo.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerInfo.h"
#include "pool/PlayerManager.h"

namespace zaffo {

/// A pool whose protected steps a test can call.
class OpenPlayerManager : public PlayerManager {
 public:
  static std::shared_ptr<OpenPlayerManager> create(PlayerFactory factory) {
    const auto manager = std::make_shared<OpenPlayerManager>(std::move(factory));
    manager->observeMediaServicesReset();
    return manager;
  }
  explicit OpenPlayerManager(PlayerFactory factory) : PlayerManager(std::move(factory)) {}

  using PlayerManager::cleanUpWithMaxPlayers;
  using PlayerManager::dequeueAvailablePlayer;
};

/// A pool of scripted players, named "0", "1", … in the order of their making, and one log of what
/// they and the requests did.
class PoolTest : public testing::Test {
 protected:
  /// One loadPlayer call and its outcome. The result holds the handle.
  struct Request {
    int completions = 0;
    std::optional<PlayerLoadResult> result;
    ZFCancelCommandPtr command;
    std::function<void()> onComplete;  ///< run at the end of the completion

    [[nodiscard]] std::shared_ptr<PlayerDecorator> handle() const {
      return result ? result->player() : nullptr;
    }
    [[nodiscard]] std::string errorText() const {
      const auto error = result ? result->error() : nullptr;
      return error ? error->domain() + " " + std::to_string(error->code()) + " " +
                         error->localizedDescription()
                   : "";
    }
    void release() { result.reset(); }
  };
  using RequestPtr = std::shared_ptr<Request>;
  using VideoPtr = std::shared_ptr<TestVideo>;

  static VideoPtr video(const std::string& id, bool keepsItem = true) {
    return std::make_shared<TestVideo>(id, keepsItem);
  }

  /// Logs "<video> done" or "<video> failed" when it completes.
  RequestPtr request(const VideoPtr& video, AVPlayerItemLoaderOptions options = {},
                     bool readable = true) {
    const auto request = std::make_shared<Request>();
    request->command =
        manager->loadPlayer(video, ScriptedAVPlayerItem::create(readable), options,
                            [request = std::weak_ptr<Request>(request), log = log,
                             id = video->videoId()](const PlayerLoadResult& result) {
                              log->push_back(id + (result.success() ? " done" : " failed"));
                              if (const auto strong = request.lock()) {
                                ++strong->completions;
                                strong->result = result;
                                if (strong->onComplete) strong->onComplete();
                              }
                            });
    return request;
  }
  RequestPtr request(const std::string& id) { return request(video(id)); }

  /// A request whose player has loaded it.
  RequestPtr loaded(const VideoPtr& video, bool readable = true) {
    const bool before = std::exchange(playersLoadAtOnce, true);
    for (const auto& weak : made) {
      if (const auto player = weak.lock()) player->loadsAtOnce = true;
    }
    auto result = request(video, {}, readable);
    for (const auto& weak : made) {
      if (const auto player = weak.lock()) player->loadsAtOnce = before;
    }
    playersLoadAtOnce = before;
    return result;
  }
  RequestPtr loaded(const std::string& id) { return loaded(video(id)); }

  /// Leaves an idle player that keeps the item of each video; the last one is at index 0.
  void makeIdle(const std::vector<std::string>& ids) {
    std::vector<RequestPtr> requests;
    for (const auto& id : ids) requests.push_back(loaded(id));
    requests.clear();
    log->clear();
  }

  /// The n-th player that was made; null when the pool has dropped it.
  [[nodiscard]] std::shared_ptr<ScriptedMutablePlayer> player(std::size_t n) const {
    return made.at(n).lock();
  }

  /// The videos' ids in list order, "nil" for none, and the uses: "b 1, a 0".
  [[nodiscard]] std::string list() const;

  const EventLog log = std::make_shared<std::vector<std::string>>();
  bool playersLoadAtOnce = false;
  std::vector<PlayerManager::PlayerKind> kinds;  ///< what the factory was asked for
  std::function<void()> onMake;
  std::vector<std::weak_ptr<ScriptedMutablePlayer>> made;
  std::shared_ptr<OpenPlayerManager> manager =
      OpenPlayerManager::create([this](PlayerManager::PlayerKind kind) {
        kinds.push_back(kind);
        if (onMake) onMake();
        auto player = std::make_shared<ScriptedMutablePlayer>(std::to_string(made.size()), log);
        player->loadsAtOnce = playersLoadAtOnce;
        made.push_back(player);
        return player;
      });
};

inline std::string PoolTest::list() const {
  std::string text;
  const std::string lines = manager->debugDescription();
  for (std::size_t start = 0; start < lines.size();) {
    const auto end = std::min(lines.find('\n', start), lines.size());
    const std::string line = lines.substr(start, end - start);
    const auto idStart = line.find("videoId: ") + 9;
    const auto uses = line.substr(line.rfind(' ') + 1);
    if (!text.empty()) text += ", ";
    text += line.substr(idStart, line.find(", state:") - idStart) + " " + uses;
    start = end + 1;
  }
  return text;
}

}  // namespace zaffo
