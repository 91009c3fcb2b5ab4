#include "figures/MeasuredLoop.h"

#include <poll.h>
#include <signal.h>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

namespace {

volatile sig_atomic_t endingSignal = 0;

void noteSignal(int number) {
  endingSignal = number;
}

}  // namespace

MeasuredLoop::MeasuredLoop() {
  // Blocked everywhere except in the wait, so that none is missed between a check and the wait.
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  struct sigaction action {};
  action.sa_handler = noteSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
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
