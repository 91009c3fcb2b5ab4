// SPDX-License-Identifier: Apache-2.0
#include "fast/PlayerFastOutputView.h"

#include <utility>

namespace zaffo {

std::shared_ptr<PlayerFastOutputView> PlayerFastOutputView::create(CGRect frame) {
  return std::shared_ptr<PlayerFastOutputView>(new PlayerFastOutputView(frame));
}

std::shared_ptr<PlayerFastOutputView> PlayerFastOutputView::createWithCoder(
    const NSCoder* /*coder*/) {
  return create();
}

PlayerFastOutputView::PlayerFastOutputView(CGRect frame) : UIView(frame) {}

void PlayerFastOutputView::setSampleBufferDisplayerLayer(
    std::shared_ptr<AVSampleBufferDisplayLayer> newLayer) {
  const auto oldLayer = std::exchange(sampleBufferDisplayerLayer_, std::move(newLayer));
  if (oldLayer) oldLayer->removeFromSuperlayer();
  if (!sampleBufferDisplayerLayer_) return;
  sampleBufferDisplayerLayer_->setFrame(bounds());
  layer()->addSublayer(sampleBufferDisplayerLayer_);
}

void PlayerFastOutputView::layoutSubviews() {
  UIView::layoutSubviews();
  if (sampleBufferDisplayerLayer_) sampleBufferDisplayerLayer_->setFrame(bounds());
}

}  // namespace zaffo
