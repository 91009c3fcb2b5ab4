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
std::shared_ptr<Window> createOffscreen(const Window::Options& options, NSErrorPtr* error) {
  auto thread = std::make_unique<RenderThread>();
  *error = thread->start([](NSErrorPtr*) { return std::make_unique<window::MemoryCanvas>(); });
  if (*error) return nullptr;
  return TreeWindow::create(std::make_unique<window::OffscreenScreen>(options), std::move(thread));
}

std::shared_ptr<Window> createOnDisplay(const Window::Options& options,
                                        DisplayScreen::Drawing drawing, NSErrorPtr* error) {
  std::unique_ptr<DisplayScreen> screen = DisplayScreen::create(options, drawing, error);
  if (!screen) return nullptr;
  auto thread = std::make_unique<RenderThread>();
  *error = thread->start(screen->canvasMaker());
  if (*error) return nullptr;
  return TreeWindow::create(std::move(screen), std::move(thread));
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

}  // namespace

std::shared_ptr<Window> Window::create(const Options& options, NSErrorPtr* error) {
  NSErrorPtr failure;
  std::shared_ptr<Window> made;
  if (options.offscreen) {
    made = createOffscreen(options, &failure);
  } else {
    for (const auto drawing : drawingsToTry()) {
      made = createOnDisplay(options, drawing, &failure);
      const bool hopeless = failure && failure->code() == static_cast<long>(WindowError::NoDisplay);
      if (made || hopeless) break;
    }
  }
  if (error) *error = made ? nullptr : failure;
  return made;
}

}  // namespace zaffo
