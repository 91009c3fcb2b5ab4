// SPDX-License-Identifier: Apache-2.0
#include "native/PlayerNativeOutputView.h"

#include <string>
#include <utility>

#include "platform/FatalError.h"
#include "platform/Trace.h"

namespace zaffo {

namespace {

AVLayerVideoGravity gravityForContentMode(UIViewContentMode mode) {
  switch (mode) {
    case UIViewContentMode::ScaleToFill:
      return AVLayerVideoGravityResize;
    case UIViewContentMode::ScaleAspectFit:
      return AVLayerVideoGravityResizeAspect;
    case UIViewContentMode::ScaleAspectFill:
      return AVLayerVideoGravityResizeAspectFill;
    default:
      trace("PlayerNativeOutputView: unsupported contentMode " +
            std::to_string(static_cast<int>(mode)) + ". Falling back to ScaleAspectFill");
      return AVLayerVideoGravityResizeAspectFill;
  }
}

}  // namespace

std::shared_ptr<PlayerNativeOutputView> PlayerNativeOutputView::create(
    std::shared_ptr<AVPlayer> player) {
  const std::shared_ptr<PlayerNativeOutputView> view(new PlayerNativeOutputView);
  view->playerLayer_->setPlayer(std::move(player));
  view->layer()->addSublayer(view->playerLayer_);
  return view;
}

std::shared_ptr<PlayerNativeOutputView> PlayerNativeOutputView::createWithCoder(
    const NSCoder* /*coder*/) {
  fatalError("init(coder:) has not been implemented");
}

PlayerNativeOutputView::PlayerNativeOutputView()
    : UIView(CGRectZero), playerLayer_(AVPlayerLayer::create()) {}

void PlayerNativeOutputView::setContentMode(UIViewContentMode mode) {
  playerLayer_->setVideoGravity(gravityForContentMode(mode));
  UIView::setContentMode(mode);
}

void PlayerNativeOutputView::layoutSubviews() {
  UIView::layoutSubviews();
  playerLayer_->setFrame(bounds());
}

void PlayerNativeOutputView::didMoveToSuperview() {
  UIView::didMoveToSuperview();
  if (!superview() || playerLayer_->superlayer() == layer()) return;
  layer()->addSublayer(playerLayer_);
  setNeedsLayout();
}

}  // namespace zaffo
