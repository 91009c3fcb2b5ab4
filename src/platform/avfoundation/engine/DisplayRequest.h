// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/uikit/CALayer.h"

namespace zaffo {

/// Asks for a layer to be drawn, from any thread, on the main queue, once between two draws: a
/// layer that nobody draws costs the main thread nothing.
class DisplayRequest {
 public:
  /// What to call when there is something new to draw; it does nothing once the layer is gone.
  [[nodiscard]] std::function<void()> forLayer(std::weak_ptr<CALayer> weakLayer) const {
    return [weakLayer = std::move(weakLayer), requested = requested_] {
      if (requested->exchange(true)) return;
      dispatch_async(dispatch_get_main_queue(), [weakLayer] {
        if (const auto layer = weakLayer.lock()) layer->setNeedsDisplay();
      });
    };
  }
  /// The layer is being drawn: what is new from now on is asked for again.
  void noteDraw() { requested_->store(false); }

 private:
  const std::shared_ptr<std::atomic<bool>> requested_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace zaffo
