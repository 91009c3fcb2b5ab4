// SPDX-License-Identifier: Apache-2.0
#include "platform/window/SDLCommon.h"

#include <string_view>

namespace zaffo::window {

namespace {

/// Where no display can be reached, SDL may settle for a driver that shows pictures to nobody. Ends
/// the video subsystem then and returns true, unless the environment asks for that driver.
bool leaveWithoutDisplay() {
  const char* driver = SDL_GetCurrentVideoDriver();
  const std::string_view name = driver ? driver : "";
  const bool showsNothing = name == "offscreen" || name == "dummy" || name == "evdev";
  if (!showsNothing || SDL_getenv("SDL_VIDEODRIVER")) return false;
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
  SDL_SetError("no X11 or Wayland display can be reached");
  return true;
}

}  // namespace

SDLVideo::SDLVideo() {
  // The process's signals, its exit and its pointers are the application's business.
  SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
  SDL_SetHint(SDL_HINT_QUIT_ON_LAST_WINDOW_CLOSE, "0");
  SDL_SetHint(SDL_HINT_TOUCH_MOUSE_EVENTS, "0");
  SDL_SetHint(SDL_HINT_MOUSE_TOUCH_EVENTS, "0");
  SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "0");
  // A surface that SDL shows through a renderer of its own would be drawn twice.
  SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
  ready_ = SDL_InitSubSystem(SDL_INIT_VIDEO) == 0 && !leaveWithoutDisplay();
  // Keys are wanted as keys: no input method stands between.
  if (ready_) SDL_StopTextInput();
}

SDLVideo::~SDLVideo() {
  if (ready_) SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

NSErrorPtr makeSDLError(WindowError code, const std::string& text) {
  const std::string reason = SDL_GetError();
  return NSError::create(
      WindowErrorDomain, static_cast<long>(code),
      {{NSLocalizedDescriptionKey, reason.empty() ? text : text + " (" + reason + ")"}});
}

}  // namespace zaffo::window
