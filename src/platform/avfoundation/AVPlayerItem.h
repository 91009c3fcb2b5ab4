// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/avfoundation/AVAsset.h"
#include "platform/coremedia/CMTimeRange.h"

namespace zaffo {

class AVAudioMix;

enum class AVPlayerItemStatus { Unknown = 0, ReadyToPlay = 1, Failed = 2 };

/// Posted on the main thread with the item as object when it played to its end.
inline constexpr const char* AVPlayerItemDidPlayToEndTimeNotification =
    "AVPlayerItemDidPlayToEndTimeNotification";
/// Posted on the main thread with the item as object when it could not be played to its end.
inline constexpr const char* AVPlayerItemFailedToPlayToEndTimeNotification =
    "AVPlayerItemFailedToPlayToEndTimeNotification";

/// Where the notification above keeps why: a NSErrorPtr.
inline constexpr const char* AVPlayerItemFailedToPlayToEndTimeErrorKey =
    "AVPlayerItemFailedToPlayToEndTimeErrorKey";

/// One presentation of an asset, to be given to one player at a time. Abstract so that a test can
/// script it. Thread: main; the reads may be made on any thread.
class ZAFFO_EXPORT AVPlayerItem {
 public:
  virtual ~AVPlayerItem() = default;

  /// The item of a copy of `asset`: what is inserted into a composition later is not part of it.
  /// Throws NSErrorException when `asset` is null.
  [[nodiscard]] static std::shared_ptr<AVPlayerItem> playerItemWithAsset(
      std::shared_ptr<AVAsset> asset);

  /// Unknown until a player holds the item and its asset's keys are loaded; at once ReadyToPlay
  /// or Failed when they are loaded already. What the header tells, that the video is encrypted or
  /// of an unknown codec, fails it before it is ever ready; what only decoding tells, before a
  /// preroll completes.
  [[nodiscard]] virtual AVPlayerItemStatus status() const = 0;
  /// Why the status is Failed, or why playback stopped early; null otherwise.
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
  [[nodiscard]] virtual const std::shared_ptr<AVAsset>& asset() const = 0;
  /// kCMTimeIndefinite until the asset's duration is loaded.
  [[nodiscard]] virtual CMTime duration() const = 0;

  // What a player of remote media has at hand. All is as of now: nobody is told of changes, which
  // come with the network's bytes; look when a picture is drawn, or a few times a second.

  /// The times, in the item's time, that can be played without another byte; in order, none of them
  /// touching. Empty until the asset is loaded. The whole item where all of its bytes are here, as
  /// those of a local file always are. Otherwise one range that begins at the player's position: to
  /// the end if all that follows is here, or else as long as the bytes that were read ahead last at
  /// the clip's average rate, which is an estimate. Bytes behind the position do not count.
  [[nodiscard]] virtual std::vector<CMTimeRange> loadedTimeRanges() const;
  /// Whether the player has nothing left to show or to be heard, and waits for bytes: its clock
  /// stands, and goes on by itself when they come. True as well until the first picture and sound
  /// are there, and where a player was paused while it waited.
  [[nodiscard]] virtual bool isPlaybackBufferEmpty() const;
  /// Whether playing will hardly run dry soon: two seconds lie ahead, or all that follows, or as
  /// much as is ever read ahead. Never while the buffer is empty.
  [[nodiscard]] virtual bool isPlaybackLikelyToKeepUp() const;
  /// Whether no more is fetched until some of it was played: all that follows is here, or as much
  /// as is ever read ahead.
  [[nodiscard]] virtual bool isPlaybackBufferFull() const;

  /// How its sound tracks are mixed; null, as at first, for full volume. All sound tracks of a
  /// composition are heard, and the first one of a file. What is set while a player holds the item
  /// is heard when a player takes it the next time. Thread: any.
  [[nodiscard]] virtual std::shared_ptr<const AVAudioMix> audioMix() const = 0;
  virtual void setAudioMix(std::shared_ptr<const AVAudioMix> mix) = 0;
};

}  // namespace zaffo
