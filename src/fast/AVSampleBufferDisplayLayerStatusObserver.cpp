// SPDX-License-Identifier: Apache-2.0
#include "fast/AVSampleBufferDisplayLayerStatusObserver.h"

#include <utility>

namespace zaffo {

std::shared_ptr<AVSampleBufferDisplayLayerStatusObserver>
AVSampleBufferDisplayLayerStatusObserver::create() {
  return std::shared_ptr<AVSampleBufferDisplayLayerStatusObserver>(
      new AVSampleBufferDisplayLayerStatusObserver);
}

void AVSampleBufferDisplayLayerStatusObserver::setSampleBufferDisplayerLayer(
    std::shared_ptr<AVSampleBufferDisplayLayer> newLayer) {
  observation_.invalidate();
  layer_.set(newLayer);
  if (!newLayer) return;
  observation_ = newLayer->observeStatus([weakSelf = weak_from_this()] {
    if (const auto observer = weakSelf.lock()) observer->observeValue();
  });
}

void AVSampleBufferDisplayLayerStatusObserver::observeValue() const {
  const auto layer = layer_.get();
  if (!layer) return;
  const auto status = layer->status();
  if (const auto handler = statusDidChange_.get()) handler(status);
}

}  // namespace zaffo
