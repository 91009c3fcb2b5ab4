// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SDL.h>

#include <cstdint>
#include <optional>

#include "platform/window/Window.h"

namespace zaffo::window {

/// Turns SDL's events of one window into what a person did. The pointer is the left mouse button or
/// the first finger. Thread: main.
class InputTranslation {
 public:
  /// `size` is the window's, in points.
  [[nodiscard]] std::optional<InputEvent> translate(const SDL_Event& event, CGSize size,
                                                    int64_t hostNanoseconds);

 private:
  [[nodiscard]] std::optional<InputEvent> translateFinger(const SDL_TouchFingerEvent& finger,
                                                          CGSize size);

  bool mouseIsDown_ = false;
  int modifiers_ = 0;  // as of the last key: SDL's own state is ahead of the events in hand
  std::optional<SDL_FingerID> finger_;
};

}  // namespace zaffo::window
