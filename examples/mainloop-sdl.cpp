// SPDX-License-Identifier: Apache-2.0

// The main queue inside an SDL event loop. SDL waits for its own events only, so a thread watches
// the descriptor and turns its readability into an event; the loop sleeps while nothing happens.

#include <SDL.h>
#include <ZaffoPlayback/platform/dispatch/DispatchQueue.h>
#include <ZaffoPlayback/platform/dispatch/DispatchTimer.h>
#include <ZaffoPlayback/platform/dispatch/MainLoop.h>
#include <poll.h>

#include <atomic>
#include <cstdio>
#include <semaphore>
#include <thread>

namespace {

/// Pushes one event of type eventType() each time the main queue has something to run.
class MainQueueWatcher {
 public:
  MainQueueWatcher() : eventType_(SDL_RegisterEvents(1)), thread_([this] { watch(); }) {}

  ~MainQueueWatcher() {
    ending_ = true;
    turnDone_.release();
    zaffo::dispatch_get_main_queue()->async([] {});  // makes the descriptor readable
    thread_.join();
  }

  [[nodiscard]] Uint32 eventType() const { return eventType_; }

  /// Runs the turn that an event asked for.
  void runTurn() {
    zaffo::MainLoop::runTurn();
    turnDone_.release();
  }

 private:
  void watch() {
    while (!ending_) {
      pollfd polled{zaffo::MainLoop::fileDescriptor(), POLLIN, 0};
      if (poll(&polled, 1, -1) != 1 || ending_) continue;
      SDL_Event event{};
      event.type = eventType_;
      SDL_PushEvent(&event);
      turnDone_.acquire();  // the descriptor stays readable until then
    }
  }

  const Uint32 eventType_;
  std::atomic<bool> ending_{false};
  std::counting_semaphore<> turnDone_{0};
  std::thread thread_;
};

}  // namespace

int main(int /*argc*/, char** /*argv*/) {
  if (SDL_Init(SDL_INIT_VIDEO) != 0) {
    std::fprintf(stderr, "SDL could not start: %s\n", SDL_GetError());
    return 1;
  }
  bool ran = false;
  {
    MainQueueWatcher watcher;

    // A timer on the main queue, from there to a worker, and back to the main queue to end it all.
    const auto worker = zaffo::dispatch_queue_create("example.worker");
    const auto timer =
        zaffo::dispatch_timer_after(10'000'000, zaffo::dispatch_get_main_queue(), [&] {
          worker->async([&] {
            zaffo::dispatch_get_main_queue()->async([&] {
              std::puts("SDL ran the timer, the worker and the way back.");
              ran = true;
            });
          });
        });

    SDL_Event event;
    while (!ran && SDL_WaitEvent(&event) && event.type != SDL_QUIT) {
      if (event.type == watcher.eventType()) watcher.runTurn();
    }
  }
  SDL_Quit();
  return ran ? 0 : 1;
}
