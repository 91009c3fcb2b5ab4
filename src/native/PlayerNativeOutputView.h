// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVPlayerLayer.h"
#include "platform/uikit/UIView.h"

namespace zaffo {

class NSCoder;

/// The view of a native player: it shows the player's picture through one AVPlayerLayer, kept at
/// the size of its bounds. The layer may be lent out by adding it to another layer; the view takes
/// it back the next time it is put into a superview. Thread: main.
class ZAFFO_EXPORT PlayerNativeOutputView final : public UIView {
 public:
  /// A view with an empty frame. The layer owns `player`.
  [[nodiscard]] static std::shared_ptr<PlayerNativeOutputView> create(
      std::shared_ptr<AVPlayer> player);

  /// Views are not made from archives: a fatal error.
  [[noreturn]] static std::shared_ptr<PlayerNativeOutputView> createWithCoder(const NSCoder* coder);

  /// Always the same one.
  [[nodiscard]] const std::shared_ptr<AVPlayerLayer>& playerLayer() const { return playerLayer_; }

  /// ScaleToFill, ScaleAspectFit and ScaleAspectFill set the layer's gravity. Any other mode is
  /// stored but shown as ScaleAspectFill, and a line is printed on standard output.
  void setContentMode(UIViewContentMode mode) override;

  void layoutSubviews() override;
  void didMoveToSuperview() override;

 private:
  PlayerNativeOutputView();

  const std::shared_ptr<AVPlayerLayer> playerLayer_;
};

}  // namespace zaffo
