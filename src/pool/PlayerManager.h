// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/Counter.h"
#include "companion/ZFVideo.h"
#include "pool/Player.h"

namespace zaffo {

class AVPlayerLayerContainer;
class PlayerInfo;

/// The pool: keeps a bounded number of players and lends them to whoever shows videos. The
/// application creates one and keeps it for as long as it shows videos.
///
/// Everyone who asks for the same video with the same options shares a player. A player that nobody
/// uses keeps its item, rewound to the start, if the video allows it; the next request for that
/// video is then answered inside the call. The pool only rewinds it: set the rate to 0 before
/// giving a player back, or it goes on playing unseen. When the pool is full, a request for another
/// video takes the least recently used idle player of its kind or, if there is none, the least
/// recently used player of all, in use or not: requests still waiting for that one to load fail
/// with an error, and the handles of its users then show the new video.
///
/// That last resort has a price. The use of a request that loses its player while waiting is never
/// given back: the player counts as in use for as long as the pool keeps it, so it is never idle,
/// never rewound, and no longer the first to go. A pool whose bound is never smaller than the
/// number of handles and waiting requests never gets there as long as all items are of one kind,
/// local or not; with items of both kinds, calling makeRoom() before each request prevents it.
/// removeAllPlayers() clears such uses, and so does every trim that drops the player.
///
/// Whatever the pool calls (completions, videos, players, the factory) may use the pool and may
/// drop the last reference to it: it stays alive until the operation is over.
///
/// Thread: main. The pool neither locks nor switches threads: completions run on the thread on
/// which the player reports its load, which for this library's players is the main thread.
class ZAFFO_EXPORT PlayerManager : public std::enable_shared_from_this<PlayerManager> {
 public:
  enum class PlayerKind {
    Native,  ///< drives an AVPlayer; plays every item
    Fast,    ///< shows samples without an AVPlayer; for local items while useFastPlayer() is on
  };
  /// Makes the player for a new record. Returning null is a fatal error.
  using PlayerFactory = std::function<std::shared_ptr<MutablePlayer>(PlayerKind kind)>;
  using LoadCompletion = std::function<void(const PlayerLoadResult& result)>;

  /// An empty pool that observes AVAudioSessionMediaServicesWereResetNotification. `playerFactory`
  /// replaces this library's players with others, for instance in tests.
  [[nodiscard]] static std::shared_ptr<PlayerManager> create();
  [[nodiscard]] static std::shared_ptr<PlayerManager> create(PlayerFactory playerFactory);

  /// Tears every player down.
  virtual ~PlayerManager();
  PlayerManager(const PlayerManager&) = delete;
  PlayerManager& operator=(const PlayerManager&) = delete;

  /// Whether the application has nothing urgent to do; initially true. While that is so, the pool
  /// holds at most the smaller of the two bounds below, and otherwise at most
  /// maxAllowedConcurrentPlayers(). Setting any of the three trims the pool at once. Bounds are not
  /// validated; a negative one empties the pool, as 0 does.
  [[nodiscard]] virtual bool mainThreadIsIdle() const;
  virtual void setMainThreadIsIdle(bool isIdle);
  /// Initially 16.
  [[nodiscard]] virtual std::int64_t maxAllowedConcurrentPlayers() const;
  virtual void setMaxAllowedConcurrentPlayers(std::int64_t bound);
  /// Initially 8.
  [[nodiscard]] virtual std::int64_t maxPlayersAtIdleState() const;
  virtual void setMaxPlayersAtIdleState(std::int64_t bound);

  /// Whether local items get a fast player; initially false. A change drops every player.
  [[nodiscard]] virtual bool useFastPlayer() const;
  virtual void setUseFastPlayer(bool use);

  /// Gives back one use of a pooled player (the player itself, not a handle to it). Handles call
  /// this themselves. After the last use the player is rewound, or torn down if its video does not
  /// keep its item; the rate is left alone. Ignored for a player that is not, or no longer, in the
  /// pool.
  virtual void releasePlayer(const std::shared_ptr<Player>& player);

  /// Like releasePlayer(), for an item that turned out to be broken: it does not stay in the player
  /// once nobody uses it, whatever its video says.
  void discardPlayer(const std::shared_ptr<Player>& player);

  /// How many players there are, idle ones included.
  [[nodiscard]] std::int64_t playerCount() const { return std::ssize(players_); }

  /// Makes sure that a request with `item`, for a video that no player holds, need not take a
  /// player away from its users: when the pool is full and all its idle players are of the other
  /// kind, tears down the least recently used of them. False when there is no room to be made:
  /// every player is in use, or the bounds allow none.
  [[nodiscard]] bool makeRoom(const AVPlayerItem& item);

  /// Tears down every player, including those in use; their handles then return neutral values.
  virtual void removeAllPlayers();

  /// How far the pool is with `video`, whatever options it was requested with.
  [[nodiscard]] virtual PlayerState playerState(const std::shared_ptr<ZFVideo>& video) const;

  /// A handle to the player that holds or loads `video` with these options; a failure ("No player
  /// available for this video") when there is none. Never creates a player and never loads.
  [[nodiscard]] virtual PlayerLoadResult player(const std::shared_ptr<ZFVideo>& video,
                                                AVPlayerItemLoaderOptions options);

  /// Finds or makes a player for `video`, loads `playerItem` into it and hands it out. The pool
  /// keeps `video` for as long as a player holds it; `playerItem` is not used when a player already
  /// holds or loads the video.
  ///
  /// `completion` (if empty, nobody takes over the use, so it is given back) is called once: inside
  /// the call when the video is already loaded, and otherwise when its load ends. It receives the
  /// item's or player's own error, or an error when the player is taken for another video; at once,
  /// "No player available for this video" when the bounds allow no player at all, and "No item was
  /// given for this video" when `playerItem` is null. It is never called once the returned command
  /// (never null) has been cancelled, at whatever moment, even from the completion of another
  /// request for the same video; cancelling gives the request's use back. Nor is it called when the
  /// pool drops the player or is destroyed before the load ends. In every case it has been released
  /// by then, with everything it holds.
  virtual ZFCancelCommandPtr loadPlayer(const std::shared_ptr<ZFVideo>& video,
                                        std::shared_ptr<AVPlayerItem> playerItem,
                                        AVPlayerItemLoaderOptions options,
                                        LoadCompletion completion);

  /// One line per player, most recently handed out first, without a final line feed:
  /// "Player 3 - videoId: 1234, state: Loaded, activeUses: 1".
  [[nodiscard]] virtual std::string debugDescription() const;

  /// The bare layer of a player that already holds or is loading `video`, removed from wherever it
  /// is now shown. The container holds one use. Null when there is no such player, or when its view
  /// has no such layer.
  [[nodiscard]] std::shared_ptr<AVPlayerLayerContainer> playerLayerContainerForVideo(
      const std::shared_ptr<ZFVideo>& video, AVPlayerItemLoaderOptions options);

 protected:
  explicit PlayerManager(PlayerFactory playerFactory);

  /// Removes from the list the least recently used record that nobody uses, of any type when none
  /// is given, and returns it. Null when there is none.
  virtual std::shared_ptr<PlayerInfo> dequeueAvailablePlayer(
      std::optional<PlayerSupportedItemType> supportedItemType);

  /// Tears players down until at most `maxPlayers` are left: idle ones first, the least recently
  /// used one first.
  virtual void cleanUpWithMaxPlayers(std::int64_t maxPlayers);

  /// The second half of construction: registers for the media-services reset.
  void observeMediaServicesReset();

 private:
  using PlayerInfoPtr = std::shared_ptr<PlayerInfo>;

  [[nodiscard]] std::int64_t activeMaxPlayers() const;
  /// The most recent record that `matches`; null when there is none.
  [[nodiscard]] PlayerInfoPtr findRecord(
      const std::function<bool(const PlayerInfo& record)>& matches) const;
  /// The record of a pooled player; null when there is none.
  [[nodiscard]] PlayerInfoPtr recordOf(const std::shared_ptr<Player>& player) const;
  /// Removes `record` from the list and returns it; null when it is null or not in the list.
  PlayerInfoPtr takeRecord(PlayerInfoPtr record);
  [[nodiscard]] PlayerInfoPtr makeRecord(PlayerSupportedItemType type);
  /// Null when the bounds allow no player at all.
  [[nodiscard]] PlayerInfoPtr dequeuePlayer(const std::shared_ptr<ZFVideo>& video,
                                            PlayerSupportedItemType type,
                                            AVPlayerItemLoaderOptions options);
  void markPlayerInfoAsInUse(const PlayerInfoPtr& record);
  void startLoad(const PlayerInfoPtr& record, std::shared_ptr<AVPlayerItem> item);
  void cleanUpIfNeeded();
  void teardownNextPlayer();
  void mediaServicesWereReset();

  bool mainThreadIsIdle_ = true;
  std::int64_t maxAllowedConcurrentPlayers_ = 16;
  std::int64_t maxPlayersAtIdleState_ = 8;
  bool useFastPlayer_ = false;
  std::vector<PlayerInfoPtr> players_;  // Most recently handed out first.
  Sequence playerIdSequence_;
  const PlayerFactory playerFactory_;
};

/// The name under which an application's object runtime knows the pool.
using ZFPlayerManager = PlayerManager;

}  // namespace zaffo
