// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"
#include "platform/uikit/UIView.h"

namespace zaffo {

class NSCoder;

/// The view of a fast player: it shows one display layer, kept at the size of its bounds. Content
/// mode and colours are those of any view and do not change how the layer fits its picture. Thread:
/// main.
class ZAFFO_EXPORT PlayerFastOutputView final : public UIView {
 public:
  /// A view without a layer.
  [[nodiscard]] static std::shared_ptr<PlayerFastOutputView> create(CGRect frame = CGRectZero);
  /// Same as create(): an archive holds nothing that the view needs.
  [[nodiscard]] static std::shared_ptr<PlayerFastOutputView> createWithCoder(const NSCoder* coder);

  /// Initially null.
  [[nodiscard]] const std::shared_ptr<AVSampleBufferDisplayLayer>& sampleBufferDisplayerLayer()
      const {
    return sampleBufferDisplayerLayer_;
  }
  /// Removes the current layer from its superlayer and puts `layer` on top of everything in the
  /// view, at its bounds. Null leaves the view without one. The view owns the layer.
  void setSampleBufferDisplayerLayer(std::shared_ptr<AVSampleBufferDisplayLayer> layer);

  void layoutSubviews() override;

 private:
  explicit PlayerFastOutputView(CGRect frame);

  std::shared_ptr<AVSampleBufferDisplayLayer> sampleBufferDisplayerLayer_;
};

}  // namespace zaffo
