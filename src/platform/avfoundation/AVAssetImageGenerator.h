// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/avfoundation/AVAsset.h"
#include "platform/uikit/CGImage.h"

namespace zaffo {

/// Makes still pictures of an asset. Abstract so that a test can script it. Thread: one at a time.
class ZAFFO_EXPORT AVAssetImageGenerator {
 public:
  /// With the image and the presentation time of the frame that it shows, or null, an invalid time
  /// and why there is none.
  using ImageCompletion =
      std::function<void(CGImagePtr image, CMTime actualTime, NSErrorPtr error)>;

  [[nodiscard]] static std::shared_ptr<AVAssetImageGenerator> assetImageGeneratorWithAsset(
      std::shared_ptr<AVAsset> asset);
  virtual ~AVAssetImageGenerator() = default;

  /// Bounds in pixels; the picture keeps its aspect and is never enlarged. A side of 0 is
  /// unbounded.
  virtual void setMaximumSize(CGSize size) = 0;
  /// Whether the picture is turned upright by the track's transform. Off by default.
  virtual void setAppliesPreferredTrackTransform(bool applies) = 0;

  /// The frame shown at `time`, exactly. Loads the asset if needed and waits: not for the main
  /// thread. Null with `error` set on failure; `actualTime` and `error` may be null.
  [[nodiscard]] virtual CGImagePtr copyCGImageAtTime(CMTime time, CMTime* actualTime,
                                                     NSErrorPtr* error) = 0;

  /// The same without waiting: loads the asset, and waits for what it stores, without a thread,
  /// and decodes a little at a time when nobody else wants the processor. `completion` is called
  /// once, on a worker, also when the generator is gone by then. One that only has the above calls
  /// it inside this call, with `time` for the frame's.
  virtual void generateCGImageAsynchronouslyForTime(CMTime time, ImageCompletion completion);
};

}  // namespace zaffo
