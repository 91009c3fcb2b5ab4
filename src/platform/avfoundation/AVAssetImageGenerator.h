// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVAsset.h"
#include "platform/uikit/CGImage.h"

namespace zaffo {

/// Makes still pictures of an asset. Abstract so that a test can script it. Thread: one at a time.
class ZAFFO_EXPORT AVAssetImageGenerator {
 public:
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
};

}  // namespace zaffo
