// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"
#include "platform/foundation/KeyValueObservation.h"

namespace zaffo {

/// Forwards every change of one display layer's status to a closure, on the thread of the change.
/// Its owner sets the layer to null before releasing it. Thread: any; the layer is set by one
/// thread at a time.
class AVSampleBufferDisplayLayerStatusObserver
    : public std::enable_shared_from_this<AVSampleBufferDisplayLayerStatusObserver> {
 public:
  using StatusDidChange = std::function<void(AVQueuedSampleBufferRenderingStatus status)>;

  /// Observes nothing and reports to nobody.
  [[nodiscard]] static std::shared_ptr<AVSampleBufferDisplayLayerStatusObserver> create();

  [[nodiscard]] StatusDidChange statusDidChange() const { return statusDidChange_.get(); }
  /// Receives the status that the layer has at the time of the call; never the initial one. When
  /// empty, nobody is told.
  void setStatusDidChange(StatusDidChange handler) { statusDidChange_.set(std::move(handler)); }

  [[nodiscard]] std::shared_ptr<AVSampleBufferDisplayLayer> sampleBufferDisplayerLayer() const {
    return layer_.get();
  }
  /// Moves the observation from the current layer to `layer`; null ends it. The observer owns the
  /// layer.
  void setSampleBufferDisplayerLayer(std::shared_ptr<AVSampleBufferDisplayLayer> layer);

 private:
  AVSampleBufferDisplayLayerStatusObserver() = default;
  void observeValue() const;

  // Properties, because the layer's thread may read while their owner sets.
  ObservableProperty<StatusDidChange> statusDidChange_;
  ObservableProperty<std::shared_ptr<AVSampleBufferDisplayLayer>> layer_;
  KeyValueObservation observation_;
};

}  // namespace zaffo
