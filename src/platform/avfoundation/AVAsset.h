// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/foundation/AVError.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace zaffo {

namespace media {
class SampleSource;
}

enum class AVKeyValueStatus { Unknown = 0, Loading = 1, Loaded = 2, Failed = 3, Cancelled = 4 };

/// Timed media to be played, read or pictured. Its values load asynchronously: ask with
/// loadValuesAsynchronouslyForKeys, then read. Reading a value before it is loaded gives its empty
/// value (no tracks, kCMTimeInvalid, false) and never waits. Keys: "tracks", "duration",
/// "playable", "readable". Abstract so that a test can script it. Thread: any.
class ZAFFO_EXPORT AVAsset {
 public:
  virtual ~AVAsset() = default;

  /// An AVURLAsset without options.
  [[nodiscard]] static std::shared_ptr<AVAsset> assetWithURL(std::shared_ptr<const NSURL> url);

  /// Loads what is not loaded yet and calls `handler` once, on a thread of the asset's choosing,
  /// when every key has ended as loaded, failed or cancelled. Never called inside the call.
  virtual void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                               std::function<void()> handler) = 0;

  /// How the loading of `key` stands; when it failed and `error` is not null, why.
  [[nodiscard]] virtual AVKeyValueStatus statusOfValueForKey(const std::string& key,
                                                             NSErrorPtr* error = nullptr) const = 0;

  /// Ends loading that is under way: its keys become Cancelled and the handlers run.
  virtual void cancelLoading() = 0;

  [[nodiscard]] virtual CMTime duration() const = 0;
  [[nodiscard]] virtual std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const = 0;
  [[nodiscard]] std::vector<std::shared_ptr<const AVAssetTrack>> tracksWithMediaType(
      AVMediaType type) const;
  /// Whether samples can be read one by one: true for local media only. Known at once.
  [[nodiscard]] virtual bool isReadable() const = 0;
  /// Whether its first picture track or, of sound alone, its first sound track can be decoded, as
  /// far as the header tells: not when it is encrypted or of an unknown codec.
  [[nodiscard]] virtual bool isPlayable() const = 0;

  /// An asset of the same media that does not change any more; what is loaded stays loaded, nothing
  /// is opened again. This very asset when it cannot change.
  [[nodiscard]] virtual std::shared_ptr<AVAsset> copy() = 0;

  /// Where the platform itself gets the samples; null until "tracks" is loaded, and in doubles.
  [[nodiscard]] virtual std::shared_ptr<media::SampleSource> sampleSource() const;
};

/// The media at a URL.
class ZAFFO_EXPORT AVURLAsset : public AVAsset {
 public:
  [[nodiscard]] static std::shared_ptr<AVURLAsset> URLAssetWithURL(
      std::shared_ptr<const NSURL> url);
  [[nodiscard]] virtual const std::shared_ptr<const NSURL>& URL() const = 0;
};

}  // namespace zaffo
