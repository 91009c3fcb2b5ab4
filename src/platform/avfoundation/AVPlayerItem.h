#pragma once

#include <memory>
#include <string>

#include "platform/avfoundation/AVAsset.h"

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

  /// How its sound tracks are mixed; null, as at first, for full volume. All sound tracks of a
  /// composition are heard, and the first one of a file. What is set while a player holds the item
  /// is heard when a player takes it the next time. Thread: any.
  [[nodiscard]] virtual std::shared_ptr<const AVAudioMix> audioMix() const = 0;
  virtual void setAudioMix(std::shared_ptr<const AVAudioMix> mix) = 0;
};

}  // namespace zaffo
