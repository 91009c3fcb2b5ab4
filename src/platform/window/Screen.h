// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/uikit/Geometry.h"
#include "platform/window/RenderThread.h"
#include "platform/window/Window.h"

namespace zaffo::window {

/// What a window is shown on: a real one, or nothing at all. Thread: main.
class Screen {
 public:
  virtual ~Screen() = default;

  [[nodiscard]] virtual CGSize size() const = 0;   ///< points
  [[nodiscard]] virtual double scale() const = 0;  ///< pixels a point
  virtual void setTitle(const std::string& title) = 0;
  [[nodiscard]] virtual bool isFullScreen() const = 0;
  virtual void setFullScreen(bool fullScreen) = 0;
  virtual void setKeepsScreenAwake(bool awake) = 0;
  /// Least time between two pictures, in nanoseconds.
  [[nodiscard]] virtual int64_t frameInterval() const = 0;

  /// `input` is told what the person did; `exposed`, that the picture on screen was lost.
  virtual void setHandlers(std::function<void(const InputEvent&)> input,
                           std::function<void()> exposed) = 0;
  /// Delivers events that drawing may have read off the display's connection.
  virtual void deliverEvents() = 0;
};

/// No display: pictures go to memory.
class OffscreenScreen : public Screen {
 public:
  explicit OffscreenScreen(const Window::Options& options);

  [[nodiscard]] CGSize size() const override { return size_; }
  [[nodiscard]] double scale() const override { return scale_; }
  void setTitle(const std::string&) override {}
  [[nodiscard]] bool isFullScreen() const override { return isFullScreen_; }
  void setFullScreen(bool fullScreen) override { isFullScreen_ = fullScreen; }
  void setKeepsScreenAwake(bool) override {}
  [[nodiscard]] int64_t frameInterval() const override { return frameInterval_; }
  void setHandlers(std::function<void(const InputEvent&)>, std::function<void()>) override {}
  void deliverEvents() override {}

 private:
  CGSize size_;
  double scale_;
  bool isFullScreen_ = false;
  int64_t frameInterval_;
};

}  // namespace zaffo::window
