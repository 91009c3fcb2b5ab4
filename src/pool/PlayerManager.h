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

/// The pool: keeps a bounded number of players and lends them to those who show videos. The
/// application makes one and keeps it for as long as it shows videos.
///
/// Everyone who asks for the same video with the same options shares a player. A player that nobody
/// uses keeps its item, rewound to its start, when the video allows it; the next request for that
/// video is then answered inside the call. Rewound is all that it is: whoever gives a player back
/// sets its rate to 0 before, or it goes on playing unseen. When the pool is full, a request for
/// another video takes the least recently used idle player of its kind, and when there is none, the
/// least recently used player at all, in use or not: whoever still waits for that one's load fails
/// with an error, and the handles of its users then show the new video.
///
/// That last resort has a price. The use of a request that loses its player while it waits is never
/// given back: the player counts as in use for as long as the pool keeps it, so it is never idle,
/// never rewound, and no longer the first to go. A pool whose bound is at no time smaller than the
/// number of handles and waiting requests never comes to it, as long as all items are of one
/// kind, local or not; with items of both, makeRoom() before each request sees to it.
/// removeAllPlayers() clears such uses, and so does every trim that drops the player.
///
/// What the pool calls (completions, videos, players, the factory) may use the pool and may drop
/// the last reference to it: it lives until its operation is over.
///
/// Thread: main. The pool neither locks nor changes threads: completions run on the thread on which
/// the player reports its load, which is the main one for the players of this library.
class ZAFFO_EXPORT PlayerManager : public std::enable_shared_from_this<PlayerManager> {
 public:
  enum class PlayerKind {
    Native,  ///< drives an AVPlayer; plays every item
    Fast,    ///< shows samples without an AVPlayer; for local items while useFastPlayer() is on
  };
  /// Makes the player of a new record. To give null is a fatal error.
  using PlayerFactory = std::function<std::shared_ptr<MutablePlayer>(PlayerKind kind)>;
  using LoadCompletion = std::function<void(const PlayerLoadResult& result)>;

  /// An empty pool that observes AVAudioSessionMediaServicesWereResetNotification. `playerFactory`
  /// replaces the players of this library by others, in tests say.
  [[nodiscard]] static std::shared_ptr<PlayerManager> create();
  [[nodiscard]] static std::shared_ptr<PlayerManager> create(PlayerFactory playerFactory);

  /// Tears every player down.
  virtual ~PlayerManager();
  PlayerManager(const PlayerManager&) = delete;
  PlayerManager& operator=(const PlayerManager&) = delete;

  /// Whether the application has nothing urgent to do; true at first. While it is, the pool holds
  /// at most the smaller of the two bounds below, and maxAllowedConcurrentPlayers() otherwise. Each
  /// write of these three trims the pool at once. Bounds are not validated; a negative one empties
  /// the pool as 0 does.
  [[nodiscard]] virtual bool mainThreadIsIdle() const;
  virtual void setMainThreadIsIdle(bool isIdle);
  /// 16 at first.
  [[nodiscard]] virtual std::int64_t maxAllowedConcurrentPlayers() const;
  virtual void setMaxAllowedConcurrentPlayers(std::int64_t bound);
  /// 8 at first.
  [[nodiscard]] virtual std::int64_t maxPlayersAtIdleState() const;
  virtual void setMaxPlayersAtIdleState(std::int64_t bound);

  /// Whether local items get a player of the fast kind; false at first. A change drops every
  /// player.
  [[nodiscard]] virtual bool useFastPlayer() const;
  virtual void setUseFastPlayer(bool use);

  /// Gives one use of a pooled player back: the player itself, not a handle to it. Handles call
  /// this by themselves. With the last use the player is rewound, or torn down when its video does
  /// not keep its item; the rate is left as it is. Ignored when the pool does not know the player
  /// (any more).
  virtual void releasePlayer(const std::shared_ptr<Player>& player);

  /// releasePlayer(), and the item does not stay in the player once nobody uses it, whatever its
  /// video says: for an item that turned out to be broken.
  void discardPlayer(const std::shared_ptr<Player>& player);

  /// How many players there are, idle ones included.
  [[nodiscard]] std::int64_t playerCount() const { return std::ssize(players_); }

  /// Sees to it that a request with `item` for a video that no player holds need not take a player
  /// from those who use it: when the pool is full and its idle players are all of the other kind,
  /// the least recently used of them is torn down. False when there is nothing to be had: every
  /// player is in use, or the bounds allow none.
  [[nodiscard]] bool makeRoom(const AVPlayerItem& item);

  /// Tears every player down, those in use included; their handles then answer with neutral values.
  virtual void removeAllPlayers();

  /// How far the pool is with `video`, whatever the options it was asked for with.
  [[nodiscard]] virtual PlayerState playerState(const std::shared_ptr<ZFVideo>& video) const;

  /// A handle to the player that holds or loads `video` with these options; a failure ("No player
  /// available for this video") when there is none. Never makes a player and never loads.
  [[nodiscard]] virtual PlayerLoadResult player(const std::shared_ptr<ZFVideo>& video,
                                                AVPlayerItemLoaderOptions options);

  /// Finds or makes a player for `video`, loads `playerItem` into it and hands it out. The pool
  /// keeps `video` for as long as a player holds it; `playerItem` is not used when a player already
  /// holds or loads the video.
  ///
  /// `completion` (may be empty: nobody takes the use over, so it is given back) is called once:
  /// inside the call when the video is loaded already, and otherwise when its load ends. It fails
  /// with the item's or player's own error, or when the player is taken for another video; at once
  /// with "No player available for this video" when the bounds allow no player at all, and with "No
  /// item was given for this video" when `playerItem` is null. It is never called when the returned
  /// command (never null) is cancelled first, at whatever moment, be it from the completion of
  /// another request for the same video; that gives the request's use back. Nor is it when the pool
  /// drops the player or goes away before the load ends. It is let go of, with all that it holds,
  /// by then.
  virtual ZFCancelCommandPtr loadPlayer(const std::shared_ptr<ZFVideo>& video,
                                        std::shared_ptr<AVPlayerItem> playerItem,
                                        AVPlayerItemLoaderOptions options,
                                        LoadCompletion completion);

  /// One line a player, most recently handed out first, without a final line feed:
  /// "Player 3 - videoId: 1234, state: Loaded, activeUses: 1".
  [[nodiscard]] virtual std::string debugDescription() const;

  /// The bare layer of a player that already holds or loads `video`, taken off the screen where it
  /// is now. The container holds one use. Null when there is no such player, or when its view has
  /// no such layer.
  [[nodiscard]] std::shared_ptr<AVPlayerLayerContainer> playerLayerContainerForVideo(
      const std::shared_ptr<ZFVideo>& video, AVPlayerItemLoaderOptions options);

 protected:
  explicit PlayerManager(PlayerFactory playerFactory);

  /// Takes the least recently used record without a use out of the list; of any type when none is
  /// given. Null when there is none.
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
  /// The first record, from the most recent on, that `matches`; null when there is none.
  [[nodiscard]] PlayerInfoPtr findRecord(
      const std::function<bool(const PlayerInfo& record)>& matches) const;
  /// The record of a pooled player; null when there is none.
  [[nodiscard]] PlayerInfoPtr recordOf(const std::shared_ptr<Player>& player) const;
  /// Out of the list. Null when `record` is, or is not in the list.
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
