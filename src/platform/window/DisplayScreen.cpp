// SPDX-License-Identifier: Apache-2.0
#include "platform/window/DisplayScreen.h"

#include <cmath>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/window/EventPump.h"
#include "platform/window/SurfaceCanvas.h"
#include "platform/window/TextureCanvas.h"

namespace zaffo::window {

namespace {

/// The kind of context that the renderer will want: with another one it would replace the window,
/// from its own thread.
Uint32 prepareContext(DisplayScreen::Drawing drawing) {
  if (drawing == DisplayScreen::Drawing::Surface) return 0;
  const bool embedded = drawing == DisplayScreen::Drawing::OpenGLES;
  SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, embedded ? SDL_GL_CONTEXT_PROFILE_ES : 0);
  SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 2);
  SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, embedded ? 0 : 1);
  return SDL_WINDOW_OPENGL;
}

}  // namespace

Result<std::unique_ptr<DisplayScreen>> DisplayScreen::create(const Window::Options& options,
                                                             Drawing drawing) {
  auto video = std::make_shared<SDLVideo>();
  if (!video->isReady()) {
    return makeSDLError(WindowError::NoDisplay,
                        "There is no display to open a window on. Set DISPLAY or "
                        "WAYLAND_DISPLAY, or run without a window");
  }
  const Uint32 flags = prepareContext(drawing) | SDL_WINDOW_ALLOW_HIGHDPI | SDL_WINDOW_RESIZABLE |
                       (options.visible ? 0u : Uint32{SDL_WINDOW_HIDDEN});
  SDLWindowPtr window(SDL_CreateWindow(options.title.c_str(), SDL_WINDOWPOS_UNDEFINED,
                                       SDL_WINDOWPOS_UNDEFINED,
                                       static_cast<int>(std::lround(options.size.width)),
                                       static_cast<int>(std::lround(options.size.height)), flags));
  if (!window) return makeSDLError(WindowError::NoWindow, "The display refused to open a window");
  return std::unique_ptr<DisplayScreen>(
      new DisplayScreen(std::move(video), std::move(window), drawing));
}

DisplayScreen::DisplayScreen(std::shared_ptr<SDLVideo> video, SDLWindowPtr window, Drawing drawing)
    : video_(std::move(video)), window_(std::move(window)), drawing_(drawing) {
  EventPump::shared().add(window_.get(), [this](const SDL_Event& event) { handle(event); });
}

DisplayScreen::~DisplayScreen() {
  EventPump::shared().remove(window_.get());
}

RenderThread::MakeCanvas DisplayScreen::canvasMaker() const {
  return [window = window_.get(), drawing = drawing_] {
    switch (drawing) {
      case Drawing::OpenGL:
        return TextureCanvas::create(window, "opengl");
      case Drawing::OpenGLES:
        return TextureCanvas::create(window, "opengles2");
      case Drawing::Surface:
        break;
    }
    return SurfaceCanvas::create(window);
  };
}

CGSize DisplayScreen::size() const {
  int width = 0, height = 0;
  SDL_GetWindowSize(window_.get(), &width, &height);
  return {static_cast<double>(width), static_cast<double>(height)};
}

double DisplayScreen::scale() const {
  int width = 0, height = 0;
  SDL_GetWindowSizeInPixels(window_.get(), &width, &height);
  const double points = size().width;
  return points > 0 ? width / points : 1;
}

void DisplayScreen::setTitle(const std::string& title) {
  SDL_SetWindowTitle(window_.get(), title.c_str());
}

bool DisplayScreen::isFullScreen() const {
  return (SDL_GetWindowFlags(window_.get()) & SDL_WINDOW_FULLSCREEN) != 0;
}

void DisplayScreen::setFullScreen(bool fullScreen) {
  SDL_SetWindowFullscreen(window_.get(), fullScreen ? Uint32{SDL_WINDOW_FULLSCREEN_DESKTOP} : 0);
}

void DisplayScreen::setKeepsScreenAwake(bool awake) {
  if (awake) {
    SDL_DisableScreenSaver();
  } else {
    SDL_EnableScreenSaver();
  }
}

int64_t DisplayScreen::frameInterval() const {
  SDL_DisplayMode mode{};
  const int display = SDL_GetWindowDisplayIndex(window_.get());
  const bool known = SDL_GetCurrentDisplayMode(display, &mode) == 0 && mode.refresh_rate > 0;
  const double interval = 1e9 / (known ? mode.refresh_rate : 60);
  // Where presenting waits for the display, the display paces: asking for exactly its interval
  // would now and then miss a refresh.
  return std::llround(drawing_ == Drawing::Surface ? interval : interval * 0.75);
}

void DisplayScreen::setHandlers(std::function<void(const InputEvent&)> input,
                                std::function<void()> exposed) {
  inputHandler_ = std::move(input);
  exposedHandler_ = std::move(exposed);
}

void DisplayScreen::deliverEvents() {
  EventPump::shared().pump();
}

void DisplayScreen::handle(const SDL_Event& event) {
  // Copies: a handler may let the window go.
  const auto input = inputHandler_;
  const auto exposed = exposedHandler_;
  const bool lost = event.type == SDL_WINDOWEVENT && event.window.event == SDL_WINDOWEVENT_EXPOSED;
  if (lost && exposed) exposed();
  const auto translated = input_.translate(event, size(), TimeSource::now());
  if (event.type == SDL_DROPFILE) SDL_free(event.drop.file);  // taken from SDL's queue, so ours
  if (translated && input) input(*translated);
}

}  // namespace zaffo::window
