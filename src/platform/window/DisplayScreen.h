// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/window/InputTranslation.h"
#include "platform/window/SDLCommon.h"
#include "platform/window/Screen.h"

namespace zaffo::window {

/// A window of the desktop, and its input. Thread: main.
class DisplayScreen : public Screen {
 public:
  /// How a window is drawn to, best first; each needs a window of its own kind.
  enum class Drawing { OpenGL, OpenGLES, Surface };

  /// Fails when the display offers no such window.
  static Result<std::unique_ptr<DisplayScreen>> create(const Window::Options& options,
                                                       Drawing drawing);
  ~DisplayScreen() override;

  /// Makes the canvas, on the render thread. The screen must outlive the canvas.
  [[nodiscard]] RenderThread::MakeCanvas canvasMaker() const;

  [[nodiscard]] CGSize size() const override;
  [[nodiscard]] double scale() const override;
  void setTitle(const std::string& title) override;
  [[nodiscard]] bool isFullScreen() const override;
  void setFullScreen(bool fullScreen) override;
  void setKeepsScreenAwake(bool awake) override;
  [[nodiscard]] int64_t frameInterval() const override;
  void setHandlers(std::function<void(const InputEvent&)> input,
                   std::function<void()> exposed) override;
  void deliverEvents() override;

 private:
  DisplayScreen(std::shared_ptr<SDLVideo> video, SDLWindowPtr window, Drawing drawing);
  void handle(const SDL_Event& event);

  std::shared_ptr<SDLVideo> video_;  // outlives the window
  SDLWindowPtr window_;
  Drawing drawing_;
  InputTranslation input_;
  std::function<void(const InputEvent&)> inputHandler_;
  std::function<void()> exposedHandler_;
};

}  // namespace zaffo::window
