// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVAssetImageGenerator.h"

namespace zaffo {

/// An image generator that gives the picture and the error that a test puts into it.
class ScriptedImageGenerator final : public AVAssetImageGenerator {
 public:
  CGImagePtr image;
  NSErrorPtr errorValue;
  std::function<void()> onCopy;
  std::function<void()> onMaximumSize;

  std::vector<CGSize> maximumSizes;
  std::vector<bool> appliedTransforms;
  std::vector<CMTime> copiedTimes;
  bool wasAskedForActualTime = false;

  void setMaximumSize(CGSize size) override {
    maximumSizes.push_back(size);
    if (onMaximumSize) onMaximumSize();
  }
  void setAppliesPreferredTrackTransform(bool applies) override {
    appliedTransforms.push_back(applies);
  }
  [[nodiscard]] CGImagePtr copyCGImageAtTime(CMTime time, CMTime* actualTime,
                                             NSErrorPtr* error) override {
    copiedTimes.push_back(time);
    wasAskedForActualTime = actualTime != nullptr;
    if (onCopy) onCopy();
    if (error) *error = errorValue;
    return image;
  }
};

}  // namespace zaffo
