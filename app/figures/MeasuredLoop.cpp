// SPDX-License-Identifier: Apache-2.0
#include "figures/MeasuredLoop.h"

#include <poll.h>
#include <signal.h>

#include <array>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

namespace {

constexpr std::array kEnding{SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t endingSignal = 0;

void noteSignal(int number) {
  endingSignal = number;
}

}  // namespace

MeasuredLoop::MeasuredLoop() {
  // Blocked everywhere except in the wait, so that none is missed between a check and the wait.
  sigset_t ending;
  sigemptyset(&ending);
  for (const int number : kEnding) sigaddset(&ending, number);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  struct sigaction action {};
  action.sa_handler = noteSignal;
  for (const int number : kEnding) sigaction(number, &action, nullptr);
}

bool MeasuredLoop::waitForWork() {
  sigset_t none;
  sigemptyset(&none);
  pollfd work{MainLoop::fileDescriptor(), POLLIN, 0};
  return ppoll(&work, 1, nullptr, &none) > 0;
}

void MeasuredLoop::run(const std::function<void(const TurnTimes&)>& turnEnded) {
  TurnClock clock;
  while (!quit_ && endingSignal == 0) {
    if (!waitForWork()) continue;
    clock.begin();
    MainLoop::runTurn();
    turnEnded(clock.end());
  }
}

}  // namespace zaffo::feed
