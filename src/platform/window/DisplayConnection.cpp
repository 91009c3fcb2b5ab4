// SPDX-License-Identifier: Apache-2.0
#include "platform/window/DisplayConnection.h"

#include <SDL_syswm.h>
#include <dlfcn.h>

namespace zaffo::window {

namespace {

#if defined(SDL_VIDEO_DRIVER_WAYLAND)
/// Asked of the library that SDL has loaded already, so that no build needs it.
int waylandDescriptor(wl_display* display) {
  using GetDescriptor = int (*)(wl_display*);
  void* library = dlopen("libwayland-client.so.0", RTLD_NOW | RTLD_NOLOAD);
  if (!library) return -1;
  const auto get = reinterpret_cast<GetDescriptor>(dlsym(library, "wl_display_get_fd"));
  const int descriptor = get ? get(display) : -1;
  dlclose(library);
  return descriptor;
}
#endif

}  // namespace

int displayConnection(SDL_Window* window) {
  SDL_SysWMinfo info{};
  SDL_VERSION(&info.version);
  if (!SDL_GetWindowWMInfo(window, &info)) return -1;
#if defined(SDL_VIDEO_DRIVER_X11)
  if (info.subsystem == SDL_SYSWM_X11) return ConnectionNumber(info.info.x11.display);
#endif
#if defined(SDL_VIDEO_DRIVER_WAYLAND)
  if (info.subsystem == SDL_SYSWM_WAYLAND) return waylandDescriptor(info.info.wl.display);
#endif
  return -1;
}

}  // namespace zaffo::window
