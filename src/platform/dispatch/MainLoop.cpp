// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/MainLoop.h"

#include <atomic>

#include "platform/dispatch/MainQueue.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {

namespace {
constexpr int64_t kForEver = -1;
std::atomic<bool> quitRequested{false};
}  // namespace

void MainLoop::run() {
  NSThread::adoptMainThread();
  MainQueue& queue = MainQueue::shared();
  while (!quitRequested.exchange(false)) {
    queue.wait(kForEver);
    queue.runTurn([] { return quitRequested.load(); });
  }
}

int MainLoop::runTurn() {
  assertMainThread();
  return MainQueue::shared().runTurn([] { return false; });
}

int MainLoop::runTurn(int64_t timeout) {
  assertMainThread();
  MainQueue::shared().wait(timeout);
  return runTurn();
}

void MainLoop::quit() {
  quitRequested = true;
  MainQueue::shared().wake();
}

int MainLoop::fileDescriptor() {
  return MainQueue::shared().fileDescriptor();
}

}  // namespace zaffo
