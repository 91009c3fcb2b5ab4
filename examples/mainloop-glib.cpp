// SPDX-License-Identifier: Apache-2.0

// The main queue inside a GLib main loop, as in a GTK program: GLib watches the descriptor and a
// turn is run when it is readable. Timers and work on other queues need nothing else.

#include <ZaffoPlayback/platform/dispatch/DispatchQueue.h>
#include <ZaffoPlayback/platform/dispatch/DispatchTimer.h>
#include <ZaffoPlayback/platform/dispatch/MainLoop.h>
#include <glib-unix.h>

#include <cstdio>
#include <memory>

namespace {

gboolean runTurn(gint /*descriptor*/, GIOCondition /*condition*/, gpointer /*data*/) {
  zaffo::MainLoop::runTurn();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main() {
  const std::unique_ptr<GMainLoop, void (*)(GMainLoop*)> loop(g_main_loop_new(nullptr, FALSE),
                                                              &g_main_loop_unref);
  const guint source = g_unix_fd_add(zaffo::MainLoop::fileDescriptor(), G_IO_IN, &runTurn, nullptr);

  // A timer on the main queue, from there to a worker, and back to the main queue to end the loop.
  const auto worker = zaffo::dispatch_queue_create("example.worker");
  const auto timer = zaffo::dispatch_timer_after(10'000'000, zaffo::dispatch_get_main_queue(), [&] {
    worker->async([&] {
      zaffo::dispatch_get_main_queue()->async([&] {
        std::puts("GLib ran the timer, the worker and the way back.");
        g_main_loop_quit(loop.get());
      });
    });
  });

  g_main_loop_run(loop.get());
  g_source_remove(source);
  return 0;
}
