// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "platform/window/Screen.h"

namespace zaffo::window {

OffscreenScreen::OffscreenScreen(const Window::Options& options)
    : size_(options.size),
      scale_(options.scale > 0 ? options.scale : 1),
      frameInterval_(std::llround(1e9 / std::clamp(options.framesPerSecond, 1.0, 1000.0))) {}

}  // namespace zaffo::window
