// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SDL.h>

#include <memory>
#include <string>

#include "platform/foundation/NSError.h"
#include "platform/window/Window.h"

namespace zaffo::window {

struct SDLDeleter {
  void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
  void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
  void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
};
using SDLWindowPtr = std::unique_ptr<SDL_Window, SDLDeleter>;
using SDLRendererPtr = std::unique_ptr<SDL_Renderer, SDLDeleter>;
using SDLTexturePtr = std::unique_ptr<SDL_Texture, SDLDeleter>;

/// SDL's video subsystem, while this lives. Thread: main.
class SDLVideo {
 public:
  SDLVideo();
  ~SDLVideo();
  SDLVideo(const SDLVideo&) = delete;
  SDLVideo& operator=(const SDLVideo&) = delete;
  [[nodiscard]] bool isReady() const { return ready_; }

 private:
  bool ready_;
};

/// An error of WindowErrorDomain: `text`, then what SDL says about it.
[[nodiscard]] NSErrorPtr makeSDLError(WindowError code, const std::string& text);

}  // namespace zaffo::window
