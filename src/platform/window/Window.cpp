// SPDX-License-Identifier: Apache-2.0
#include "platform/window/Window.h"

#include <string_view>
#include <utility>
#include <vector>

#include "platform/window/DisplayScreen.h"
#include "platform/window/MemoryCanvas.h"
#include "platform/window/TreeWindow.h"

namespace zaffo {

namespace {

using window::DisplayScreen;
using window::RenderThread;
using window::TreeWindow;

Result<std::shared_ptr<Window>> createOffscreen(const Window::Options& options) {
  auto thread = std::make_unique<RenderThread>();
  NSErrorPtr failure = thread->start([] { return std::make_unique<window::MemoryCanvas>(); });
  if (failure) return failure;
  return TreeWindow::create(std::make_unique<window::OffscreenScreen>(options), std::move(thread));
}

Result<std::shared_ptr<Window>> createOnDisplay(const Window::Options& options,
                                                DisplayScreen::Drawing drawing) {
  auto screen = DisplayScreen::create(options, drawing);
  if (!screen) return screen.error();
  auto thread = std::make_unique<RenderThread>();
  if (NSErrorPtr failure = thread->start((*screen)->canvasMaker())) return failure;
  return TreeWindow::create(*std::move(screen), std::move(thread));
}

/// Best first; SDL's own environment variable narrows the choice.
std::vector<DisplayScreen::Drawing> drawingsToTry() {
  using Drawing = DisplayScreen::Drawing;
  const char* chosen = SDL_GetHint(SDL_HINT_RENDER_DRIVER);
  const std::string_view driver = chosen ? chosen : "";
  if (driver == "software") return {Drawing::Surface};
  if (driver == "opengles2") return {Drawing::OpenGLES, Drawing::Surface};
  if (driver == "opengl") return {Drawing::OpenGL, Drawing::Surface};
  return {Drawing::OpenGL, Drawing::OpenGLES, Drawing::Surface};
}

/// In the first of the ways to draw that the display offers; the last one's error when it offers
/// none.
Result<std::shared_ptr<Window>> createOnDisplay(const Window::Options& options) {
  NSErrorPtr failure;
  for (const auto drawing : drawingsToTry()) {
    auto made = createOnDisplay(options, drawing);
    if (made) return made;
    failure = made.error();
    if (failure->code() == static_cast<long>(WindowError::NoDisplay)) break;
  }
  return failure;
}

}  // namespace

std::shared_ptr<Window> Window::create(const Options& options, NSErrorPtr* error) {
  auto made = options.offscreen ? createOffscreen(options) : createOnDisplay(options);
  if (error) *error = made.error();
  return std::move(made).valueOr(nullptr);
}

}  // namespace zaffo
