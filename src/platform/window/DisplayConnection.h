// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SDL.h>

namespace zaffo::window {

/// The descriptor on which the window's display (X11, Wayland) sends its events; -1 when it has
/// none, as on a bare console.
[[nodiscard]] int displayConnection(SDL_Window* window);

}  // namespace zaffo::window
