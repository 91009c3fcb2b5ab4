// SPDX-License-Identifier: Apache-2.0

// Links the window library alone and opens an offscreen window.
#include <ZaffoPlayback/platform/window/Window.h>

#include <cstdio>

int main() {
  zaffo::Window::Options options;
  options.offscreen = true;
  options.size = {90, 160};
  std::shared_ptr<const zaffo::NSError> error;
  const auto window = zaffo::Window::create(options, &error);
  if (!window) {
    std::printf("no window: %s\n", error ? error->localizedDescription().c_str() : "no reason");
    return 1;
  }
  return window->rootView() && window->size() == options.size ? 0 : 1;
}
