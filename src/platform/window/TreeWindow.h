// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/dispatch/DispatchTimer.h"
#include "platform/window/DisplayList.h"
#include "platform/window/FramePacer.h"
#include "platform/window/RenderThread.h"
#include "platform/window/Screen.h"
#include "platform/window/Window.h"

namespace zaffo::window {

/// A window's main-thread half: notices that the tree changed, lists what is to be drawn, and tells
/// the layers once it is on screen. One list is in flight at a time:
///
///             tree changed,               pace allows it
///             next picture due
///     Clean ---------------> Scheduled -------------------> Drawing
///       ^                        ^                            |
///       |                        '---- changed meanwhile -----+
///       '----------------------------------- on screen -------'
///
/// Thread: main.
class TreeWindow : public Window, public std::enable_shared_from_this<TreeWindow> {
 public:
  /// `renderThread` is running already.
  [[nodiscard]] static std::shared_ptr<TreeWindow> create(
      std::unique_ptr<Screen> screen, std::unique_ptr<RenderThread> renderThread);
  /// Does not wait for the render thread: a worker does, and the screen is let go after it.
  ~TreeWindow() override;

  [[nodiscard]] const std::shared_ptr<UIView>& rootView() const override { return rootView_; }
  [[nodiscard]] CGSize size() const override { return screen_->size(); }
  [[nodiscard]] double scale() const override { return screen_->scale(); }
  void setTitle(const std::string& title) override { screen_->setTitle(title); }
  [[nodiscard]] bool isFullScreen() const override { return screen_->isFullScreen(); }
  void setFullScreen(bool fullScreen) override { screen_->setFullScreen(fullScreen); }
  void setKeepsScreenAwake(bool awake) override { screen_->setKeepsScreenAwake(awake); }
  void setInputHandler(std::function<void(const InputEvent&)> handler) override;
  void setPresentHandler(std::function<void(int64_t hostNanoseconds)> handler) override;
  void snapshot(std::function<void(CGImagePtr)> completion) override;
  [[nodiscard]] uint64_t presentedPictures() const override { return presentedPictures_; }

 private:
  enum class State { Clean, Scheduled, Drawing };

  TreeWindow(std::unique_ptr<Screen> screen, std::unique_ptr<RenderThread> renderThread);
  void attach();
  void setNeedsDraw();
  void schedule();
  void draw();
  void planNextPicture(int64_t now);
  void pictureIsDue();
  void finishedPresenting(int64_t hostNanoseconds);
  void finishedSnapshot(uint64_t number, const CGImagePtr& image);
  void handleEvent(const InputEvent& event);
  [[nodiscard]] DisplayListAndPresentations listTree(int64_t hostNanoseconds);

  std::unique_ptr<Screen> screen_;
  std::unique_ptr<RenderThread> renderThread_;
  std::shared_ptr<UIView> rootView_;
  FramePacer pacer_;
  State state_ = State::Clean;
  bool needsDraw_ = false;  // the tree changed since the last list was made
  DispatchTimerPtr paceTimer_;
  DispatchTimerPtr pictureTimer_;
  std::vector<Presentation> presenting_;
  uint64_t presentedPictures_ = 0;
  uint64_t lastSnapshot_ = 0;
  std::map<uint64_t, std::function<void(CGImagePtr)>> snapshotCompletions_;
  std::function<void(const InputEvent&)> inputHandler_;
  std::function<void(int64_t)> presentHandler_;
};

}  // namespace zaffo::window
