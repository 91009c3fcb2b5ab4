// SPDX-License-Identifier: Apache-2.0
#include "platform/window/EventPump.h"

#include <optional>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSThread.h"
#include "platform/window/DisplayConnection.h"

namespace zaffo::window {

namespace {

/// A console's input devices can only be asked; this often a touch is seen within a frame.
constexpr int64_t pollInterval = 8'000'000;

std::optional<Uint32> windowOf(const SDL_Event& event) {
  switch (event.type) {
    case SDL_WINDOWEVENT:
      return event.window.windowID;
    case SDL_KEYDOWN:
    case SDL_KEYUP:
      return event.key.windowID;
    case SDL_MOUSEMOTION:
      return event.motion.windowID;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP:
      return event.button.windowID;
    case SDL_MOUSEWHEEL:
      return event.wheel.windowID;
    case SDL_FINGERDOWN:
    case SDL_FINGERMOTION:
    case SDL_FINGERUP:
      return event.tfinger.windowID;
    case SDL_DROPFILE:
      return event.drop.windowID;
    default:
      return std::nullopt;
  }
}

}  // namespace

EventPump& EventPump::shared() {
  static auto* const pump = new EventPump;  // SDL's filter refers to it until the process ends
  return *pump;
}

void EventPump::add(SDL_Window* window, Sink sink) {
  if (sinks_.empty()) {
    installFilter();
    watch(window);
  }
  sinks_[SDL_GetWindowID(window)] = std::move(sink);
}

void EventPump::remove(SDL_Window* window) {
  sinks_.erase(SDL_GetWindowID(window));
  if (!sinks_.empty()) return;
  watcher_.reset();
  if (pollTimer_) std::exchange(pollTimer_, nullptr)->cancel();
}

void EventPump::installFilter() {
  // A renderer listens to its window's events too, on whatever thread they are pumped, and changes
  // itself while the render thread draws. What a filter takes, it does not hear.
  SDL_EventFilter present = nullptr;
  void* context = nullptr;
  SDL_GetEventFilter(&present, &context);
  if (present != &EventPump::filter) SDL_SetEventFilter(&EventPump::filter, this);
}

void EventPump::watch(SDL_Window* window) {
  const int connection = displayConnection(window);
  if (connection < 0) {
    pollTimer_ = dispatch_timer_every(pollInterval, dispatch_get_main_queue(), [this] { pump(); });
    return;
  }
  watcher_ = std::make_unique<ConnectionWatcher>(
      connection, [this] { dispatch_get_main_queue()->async([this] { pump(); }); });
}

int EventPump::filter(void* context, SDL_Event* event) {
  return static_cast<EventPump*>(context)->take(*event) ? 0 : 1;
}

bool EventPump::take(const SDL_Event& event) {
  if (!NSThread::isMainThread()) return false;
  const std::optional<Uint32> window = windowOf(event);
  if (!window || !sinks_.count(*window)) return false;
  taken_.push_back(event);
  // Somebody else's pump: deliver once it has returned.
  if (!pumping_ && taken_.size() == 1) dispatch_get_main_queue()->async([this] { deliver(); });
  return true;
}

void EventPump::pump() {
  if (sinks_.empty() || pumping_) return;
  pumping_ = true;
  SDL_PumpEvents();
  pumping_ = false;
  deliver();
  if (watcher_) watcher_->arm();
}

void EventPump::deliver() {
  for (const SDL_Event& event : std::exchange(taken_, {})) {
    const auto found = sinks_.find(*windowOf(event));
    if (found == sinks_.end()) continue;  // an earlier event closed the window
    const Sink sink = found->second;
    sink(event);
  }
}

}  // namespace zaffo::window
