// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "companion/ZFCancelCommand.h"
#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/coremedia/CMTime.h"
#include "platform/foundation/NSError.h"
#include "platform/uikit/UIView.h"

namespace zaffo {

class PlayerDecorator;

/// How far the pool is with a video.
///
///                     a request comes            the player's load succeeds
///     +-----------+ ------------------> +---------+ ------------------> +--------+
///     | NotLoaded |                     | Loading |                     | Loaded |
///     +-----------+ <------------------ +---------+                     +--------+
///           ^         the load fails, or its last                            |
///           |         waiting request is cancelled                           |
///           +----------------------------------------------------------------+
///             the last use is given back and the video forbids keeping its item
///
/// A player reused for another video goes from any state to NotLoaded. A video the pool does not
/// know is NotLoaded.
enum class PlayerState {
  NotLoaded,  ///< no player holds an item for the video
  Loading,    ///< an item is being loaded into a player
  Loaded,     ///< the item is loaded, and the player is ready to play it
};

/// What a pooled player was made for.
enum class PlayerSupportedItemType : int {
  Streaming = 0,  ///< items whose asset cannot be read sample by sample
  Local = 1,      ///< items whose asset answers true to isReadable()
};

/// The item type with a given raw value; empty when no type has it. Thread: any.
[[nodiscard]] constexpr std::optional<PlayerSupportedItemType> PlayerSupportedItemTypeFromRawValue(
    std::int64_t rawValue) {
  if (rawValue == 0) return PlayerSupportedItemType::Streaming;
  if (rawValue == 1) return PlayerSupportedItemType::Local;
  return std::nullopt;
}

/// Domain and code of every error that the pool and the native player create themselves. An item's
/// or a player's own error is passed on unchanged, with the platform's domain and code.
inline constexpr const char* PlayerErrorDomain = "com.zaffoapp.co";
inline constexpr long PlayerErrorCode = 500;

/// An error with PlayerErrorDomain and PlayerErrorCode, and `message` as its description. Thread:
/// any.
[[nodiscard]] inline NSErrorPtr makePlayerError(std::string message) {
  return NSError::create(PlayerErrorDomain, PlayerErrorCode,
                         {{NSLocalizedDescriptionKey, std::move(message)}});
}

// Xlib has a macro of this name, which is none of a member's.
#pragma push_macro("Success")
#undef Success

/// The answer to a request for a player: a handle, or why there is none. Thread: any.
class PlayerLoadResult {
 public:
  struct Success {
    /// Stands for one use of a pooled player, which now belongs to the receiver. Dropping the last
    /// reference, or releaseToManager(), gives it back; set the rate to 0 first.
    std::shared_ptr<PlayerDecorator> player;
    /// As reported by the video; kCMTimeZero when the player holds none.
    CMTime itemDuration;
  };
  struct Failure {
    NSErrorPtr error;
  };

  // Not explicit: completions are written `completion(PlayerLoadResult::Failure{error})`.
  PlayerLoadResult(Success success) : result_(std::move(success)) {}
  PlayerLoadResult(Failure failure) : result_(std::move(failure)) {}

  /// The payload of a success or of a failure; null in the other case. Valid for as long as the
  /// result lives.
  [[nodiscard]] const Success* success() const { return std::get_if<Success>(&result_); }
  [[nodiscard]] const Failure* failure() const { return std::get_if<Failure>(&result_); }

  /// The handle of a success, null for a failure.
  [[nodiscard]] std::shared_ptr<PlayerDecorator> player() const {
    return success() ? success()->player : nullptr;
  }
  /// The error of a failure, null for a success.
  [[nodiscard]] NSErrorPtr error() const { return failure() ? failure()->error : nullptr; }

 private:
  std::variant<Success, Failure> result_;
};

#pragma pop_macro("Success")

/// What every kind of player can do: play, seek, report the time and show the picture. Applications
/// hold a PlayerDecorator, which forwards to a pooled player. Always held by shared_ptr. Thread:
/// main, unless the implementation says otherwise.
class ZAFFO_EXPORT Player {
 public:
  using SeekCompletion = std::function<void(bool finished)>;
  using TimeHandler = std::function<void(CMTime time)>;

  Player() = default;
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;
  virtual ~Player() = default;

  /// The playback rate: 0 stands still, 1 plays at the item's own speed.
  [[nodiscard]] virtual float rate() const = 0;
  virtual void setRate(float rate) = 0;

  /// The volume of the sound, 0 to 1.
  [[nodiscard]] virtual float volume() const = 0;
  virtual void setVolume(float volume) = 0;

  /// The playback position; setting it seeks without reporting back.
  [[nodiscard]] virtual CMTime currentTime() const = 0;
  virtual void setCurrentTime(CMTime time) = 0;

  /// The item that is loaded, or null.
  [[nodiscard]] virtual std::shared_ptr<AVPlayerItem> playerItem() const = 0;

  /// The view that shows the picture; put it anywhere in the view tree. Never null.
  [[nodiscard]] virtual std::shared_ptr<UIView> outputView() const = 0;

  /// Moves to a time within [time - toleranceBefore, time + toleranceAfter]; with kCMTimeZero for
  /// both, to exactly that frame. `completion` (may be empty) receives true when the seek finished
  /// and false when it was interrupted or failed. It is not guaranteed to be called: it never is
  /// when there is no player or item behind this one.
  virtual void seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                          SeekCompletion completion) = 0;

  /// Calls `handler` (not empty) on the main queue with the current time whenever playback passes
  /// one of `boundaries`, until the returned command (never null) is cancelled. Dropping the
  /// command does not cancel it.
  [[nodiscard]] virtual ZFCancelCommandPtr addTimeObserver(std::vector<CMTime> boundaries,
                                                           TimeHandler handler) = 0;

  /// Calls `handler` (not empty) on the main queue every `periodicInterval` of media time during
  /// playback and when the rate or the time jumps, until the returned command (never null) is
  /// cancelled. Dropping the command does not cancel it.
  [[nodiscard]] virtual ZFCancelCommandPtr addTimeObserver(CMTime periodicInterval,
                                                           TimeHandler handler) = 0;

  /// Boundaries written as a list, `addTimeObserver({CMTimeMake(1, 1)}, …)`: without this overload
  /// a single one would be taken for an interval. A class that overrides the two above lets this
  /// one through with `using Player::addTimeObserver`.
  [[nodiscard]] ZFCancelCommandPtr addTimeObserver(std::initializer_list<CMTime> boundaries,
                                                   TimeHandler handler) {
    return addTimeObserver(std::vector<CMTime>(boundaries), std::move(handler));
  }
};

/// A player as seen by its pool, which alone calls these. Thread: main.
///
///              loadPlayerItem            completion without error
///     +---------+ ---------> +---------+ -----------------------> +--------+
///     | no item |            | loading |                          | loaded |
///     +---------+ <--------- +---------+                          +--------+
///          ^      an error, a cancel, or      teardownPlayerItem       |
///          |          teardownPlayerItem                               |
///          +-----------------------------------------------------------+
///
///     Any state --- fullTeardown ---> gone
class ZAFFO_EXPORT MutablePlayer : public Player {
 public:
  /// Null is success.
  using LoadCompletion = std::function<void(NSErrorPtr error)>;

  /// Loads `item` in place of whatever is loaded or being loaded. `completion` (may be empty) is
  /// called at most once, possibly before this returns; and not at all when the returned command
  /// (never null) is cancelled first or another item is loaded.
  virtual ZFCancelCommandPtr loadPlayerItem(std::shared_ptr<AVPlayerItem> item,
                                            LoadCompletion completion) = 0;

  /// Drops the item; the player can load another one.
  virtual void teardownPlayerItem() = 0;

  /// Drops the item and everything else the player holds. The player must not be used again.
  virtual void fullTeardown() = 0;
};

}  // namespace zaffo
