// SPDX-License-Identifier: Apache-2.0
#include "platform/network/NetworkLoop.h"

#include <utility>

#include "platform/FatalError.h"

namespace zaffo::network {

namespace {
thread_local bool isNetworkThread = false;
}  // namespace

/// Ends the thread before the static objects that handlers may use are destroyed.
struct NetworkLoop::ExitGuard {
  ~ExitGuard() {
    if (!shared().thread_.isOfParent()) shared().stop();
  }
};

NetworkLoop& NetworkLoop::shared() {
  static auto* const loop = new NetworkLoop;
  static const ExitGuard guard;
  return *loop;
}

NetworkLoop::NetworkLoop() : context_(1), keepRunning_(context_.get_executor()) {}

void NetworkLoop::post(std::function<void()> block) {
  startThread();
  asio::post(context_, std::move(block));
}

bool NetworkLoop::isOnThread() const {
  return isNetworkThread;
}

void NetworkLoop::startThread() {
  MutexLock lock(startMutex_);
  if (std::exchange(started_, true)) return;
  const auto run = [this] {
    isNetworkThread = true;
    context_.run();
  };
  if (!thread_.start("zaffo-network", run)) {
    fatalError("No thread could be started for the network.");
  }
}

void NetworkLoop::stop() {
  context_.stop();
  thread_.waitAtExit();
}

}  // namespace zaffo::network
