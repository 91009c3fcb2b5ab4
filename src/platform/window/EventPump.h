// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/dispatch/DispatchTimer.h"
#include "platform/window/ConnectionWatcher.h"
#include "platform/window/SDLCommon.h"

namespace zaffo::window {

/// Brings SDL's events to the windows. A watcher sleeps on the connection to the display; when
/// something arrives, the main queue runs one pump. Events of our windows are taken out before SDL
/// queues them, whoever pumps; all others are left to the application. Thread: main.
class EventPump {
 public:
  using Sink = std::function<void(const SDL_Event&)>;

  [[nodiscard]] static EventPump& shared();

  void add(SDL_Window* window, Sink sink);
  void remove(SDL_Window* window);

  /// Reads what the display has sent and delivers it.
  void pump();

 private:
  EventPump() = default;
  static int filter(void* context, SDL_Event* event);
  [[nodiscard]] bool take(const SDL_Event& event);
  void installFilter();
  void watch(SDL_Window* window);
  void deliver();

  std::map<Uint32, Sink> sinks_;
  std::vector<SDL_Event> taken_;
  bool pumping_ = false;
  std::unique_ptr<ConnectionWatcher> watcher_;
  DispatchTimerPtr pollTimer_;  // for displays without a connection to sleep on
};

}  // namespace zaffo::window
