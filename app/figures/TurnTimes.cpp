// SPDX-License-Identifier: Apache-2.0
#include "figures/TurnTimes.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <ZaffoPlayback/ZaffoPlayback.h>
#include <array>
#include <cstdio>

namespace zaffo::feed {

TurnClock::TurnClock() : statistics_(open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC)) {}

TurnClock::~TurnClock() {
  if (statistics_ >= 0) close(statistics_);
}

void TurnClock::begin() {
  const int64_t before = TimeSource::now();
  start_ = read();
  start_.wall = before;  // what is read after this is within the turn, as it is at the end
}

TurnTimes TurnClock::end() const {
  const TurnTimes now = read();
  TurnTimes turn{now.wall - start_.wall, now.worked - start_.worked, std::nullopt};
  if (now.queued && start_.queued) turn.queued = *now.queued - *start_.queued;
  return turn;
}

TurnTimes TurnClock::read() const {
  timespec worked{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &worked);
  TurnTimes times{TimeSource::now(), worked.tv_sec * 1'000'000'000LL + worked.tv_nsec,
                  std::nullopt};
  std::array<char, 128> line{};
  unsigned long long ran = 0, waited = 0;
  if (statistics_ >= 0 && pread(statistics_, line.data(), line.size() - 1, 0) > 0 &&
      std::sscanf(line.data(), "%llu %llu", &ran, &waited) == 2) {
    times.queued = static_cast<int64_t>(waited);
  }
  return times;
}

}  // namespace zaffo::feed
