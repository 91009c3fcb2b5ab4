// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/foundation/NSError.h"
#include "platform/uikit/CGImage.h"
#include "platform/uikit/UIView.h"

namespace zaffo {

/// Domain of a window's errors; their text says what to do about it.
inline constexpr const char* WindowErrorDomain = "com.zaffo.window";
enum class WindowError : long {
  NoDisplay = 1,   ///< neither an X11 nor a Wayland display can be reached
  NoWindow = 2,    ///< the display refused to open a window
  NoRenderer = 3,  ///< there is no way to draw in the window
};

/// What a person did. Positions in points of the window's content, y down.
struct InputEvent {
  enum class Type {
    Close,
    Resize,  ///< the window's size, or its pixels a point
    KeyDown,
    Wheel,
    PointerDown,
    PointerMove,
    PointerUp,
    PointerHover,  ///< the mouse was moved with no button down
    Drop,          ///< a file or folder was let go over the window
    Hide,          ///< the window can no longer be seen, minimised or hidden; may come twice
    Show,          ///< it can be seen again; may come twice
  };
  Type type = Type::Close;
  CGPoint position;          ///< pointers (mouse or first finger) and wheel
  double wheelY = 0;         ///< notches; positive scrolls towards what lies below
  std::string key;           ///< SDL's key name: "Up", "Space", "PageDown", "Q"
  bool isRepeated = false;   ///< the key was held down
  bool withShift = false;    ///< keys and wheel
  bool withControl = false;  ///< keys and wheel
  std::string path;          ///< Drop
  int64_t hostTime = 0;      ///< TimeSource, nanoseconds
};

/// Shows a UIView tree: on the screen, or offscreen with the same renderer. Draws on a thread of
/// its own, only when something changed, paced to the display; the main thread only lists what is
/// to be drawn. Thread: main.
class ZAFFO_EXPORT Window {
 public:
  struct Options {
    std::string title = "ZaffoPlayback";
    CGSize size{405, 720};        ///< points
    bool offscreen = false;       ///< no display is needed
    double scale = 1;             ///< pixels a point when offscreen
    double framesPerSecond = 60;  ///< pace when offscreen
    bool visible = true;
  };
  /// Null with `error` set when there is no display, or no renderer.
  [[nodiscard]] static std::shared_ptr<Window> create(const Options& options, NSErrorPtr* error);
  virtual ~Window() = default;

  /// The view that fills the window; made with it.
  [[nodiscard]] virtual const std::shared_ptr<UIView>& rootView() const = 0;
  [[nodiscard]] virtual CGSize size() const = 0;
  /// Pixels a point.
  [[nodiscard]] virtual double scale() const = 0;

  virtual void setTitle(const std::string& title) = 0;
  /// Over the whole display; offscreen it is only remembered.
  [[nodiscard]] virtual bool isFullScreen() const = 0;
  virtual void setFullScreen(bool fullScreen) = 0;
  /// Whether the display is kept from its screen saver; at first it is.
  virtual void setKeepsScreenAwake(bool awake) = 0;

  virtual void setInputHandler(std::function<void(const InputEvent&)> handler) = 0;
  /// Called on the main thread after each picture that was put on screen, with its host time.
  virtual void setPresentHandler(std::function<void(int64_t hostNanoseconds)> handler) = 0;

  /// Draws the tree as it stands now and gives the picture, on the main queue.
  virtual void snapshot(std::function<void(CGImagePtr)> completion) = 0;

  [[nodiscard]] virtual uint64_t presentedPictures() const = 0;
};

}  // namespace zaffo
