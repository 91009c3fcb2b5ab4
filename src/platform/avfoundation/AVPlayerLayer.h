// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/avfoundation/AVPlayer.h"
#include "platform/uikit/CALayer.h"

namespace zaffo {

enum class AVLayerVideoGravity { Resize, ResizeAspect, ResizeAspectFill };
inline constexpr auto AVLayerVideoGravityResize = AVLayerVideoGravity::Resize;
inline constexpr auto AVLayerVideoGravityResizeAspect = AVLayerVideoGravity::ResizeAspect;
inline constexpr auto AVLayerVideoGravityResizeAspectFill = AVLayerVideoGravity::ResizeAspectFill;

/// Shows the picture of an AVPlayer, upright, by its gravity. Thread: main.
class ZAFFO_EXPORT AVPlayerLayer : public CALayer {
 public:
  [[nodiscard]] static std::shared_ptr<AVPlayerLayer> create();
  ~AVPlayerLayer() override;

  [[nodiscard]] const std::shared_ptr<AVPlayer>& player() const { return player_; }
  void setPlayer(std::shared_ptr<AVPlayer> player);
  /// ResizeAspect by default.
  [[nodiscard]] AVLayerVideoGravity videoGravity() const { return gravity_; }
  void setVideoGravity(AVLayerVideoGravity gravity);

  /// Whether the player has a picture of its present item to show.
  [[nodiscard]] bool isReadyForDisplay() const;
  /// Pictures of the present player that were put on screen, and that became due but never were.
  [[nodiscard]] uint64_t presentedFrames() const;
  [[nodiscard]] uint64_t droppedFrames() const;
  /// Host time (TimeSource, nanoseconds) at which the player's present item was first put on
  /// screen; 0 when it was not yet.
  [[nodiscard]] int64_t firstPresentedHostTime() const;

  [[nodiscard]] std::optional<LayerPicture> picture(int64_t hostNanoseconds) override;
  [[nodiscard]] std::optional<int64_t> nextPictureTime() override;
  void didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) override;

 protected:
  AVPlayerLayer();

 private:
  /// What was asked to be drawn, and what became of it.
  struct Drawing;
  const std::unique_ptr<Drawing> drawing_;
  std::shared_ptr<AVPlayer> player_;
  std::shared_ptr<void> frameObservation_;
  AVLayerVideoGravity gravity_ = AVLayerVideoGravityResizeAspect;
};

}  // namespace zaffo
