// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/window/DisplayList.h"

namespace zaffo::window {

/// Where pictures end up: a window through the graphics processor, a window's surface, or memory.
/// Made, used and destroyed on one thread, the render thread.
class Canvas {
 public:
  virtual ~Canvas() = default;

  /// Draws the list, which show() then puts on screen.
  virtual void draw(const DisplayList& list) = 0;
  /// May wait for the display's next refresh.
  virtual void show() = 0;
};

}  // namespace zaffo::window
