// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "platform/window/Canvas.h"
#include "platform/window/SoftwareRenderer.h"

namespace zaffo::window {

/// Draws offscreen, as if there were a display.
class MemoryCanvas : public Canvas {
 public:
  void draw(const DisplayList& list) override {
    const std::size_t stride = std::size_t{4} * static_cast<std::size_t>(list.width);
    pixels_.resize(stride * static_cast<std::size_t>(list.height));
    renderer_.draw(list,
                   {pixels_.data(), static_cast<std::ptrdiff_t>(stride), list.width, list.height});
  }
  void show() override {}

 private:
  std::vector<uint8_t> pixels_;
  SoftwareRenderer renderer_;
};

}  // namespace zaffo::window
