// SPDX-License-Identifier: Apache-2.0

// A plug-in of somebody's program, with the library behind it: what it starts outlives it.
#include <ZaffoPlayback/ZaffoPlayback.h>

#include <atomic>

extern "C" int runPlugin() {
  std::atomic<bool> ran{false};
  zaffo::dispatch_queue_create("plug-in")->async([&ran] { ran = true; });
  zaffo::dispatch_wait_until_idle();
  return ran ? 0 : 1;
}
