// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/uikit/Geometry.h"

namespace zaffo::media {

/// The picture side of a player, as its layers see it. Thread: any.
class VideoOutput {
 public:
  virtual ~VideoOutput() = default;

  struct Picture {
    CVPixelBufferPtr buffer;  ///< null while there is none
    CGAffineTransform preferredTransform;
    uint64_t itemGeneration = 0;  ///< changes with each item that the player is given
  };
  /// What to show at host time `hostNanoseconds` (TimeSource). Frames before it are let go.
  [[nodiscard]] virtual Picture pictureAtHostTime(int64_t hostNanoseconds) = 0;
  /// Host time of the next picture, for which the caller comes by itself: no observer is told of it
  /// unless the caller fails to come. None when it is not known.
  [[nodiscard]] virtual std::optional<int64_t> planNextPicture() = 0;
  /// A number of its own for each item that the player is given, and for none.
  [[nodiscard]] virtual uint64_t itemGeneration() const = 0;
  /// Whether the present item has a picture to show.
  [[nodiscard]] virtual bool hasPicture() const = 0;
  /// Frames of the present item that became due and were never asked for.
  [[nodiscard]] virtual uint64_t droppedFrames() const = 0;
  /// Calls `changed` on any thread when another picture is due, until the token is dropped.
  [[nodiscard]] virtual std::shared_ptr<void> observePictures(std::function<void()> changed) = 0;
};

}  // namespace zaffo::media
