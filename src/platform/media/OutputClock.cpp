#include "platform/media/OutputClock.h"

#include <algorithm>
#include <cmath>

#include "platform/TimeSource.h"

namespace zaffo::media {

int64_t OutputClock::Line::at(int64_t hostNanoseconds) const {
  const int64_t elapsed = hostNanoseconds - host;
  // Only the small difference from the host's pace goes through a double, so nothing is lost
  // however long the clock has run.
  return shown + elapsed + std::llround((rate - 1.0) * static_cast<double>(elapsed));
}

int64_t OutputClock::Line::inverse(int64_t nanoseconds) const {
  const int64_t elapsed = nanoseconds - shown;
  return host + elapsed + std::llround((1.0 / rate - 1.0) * static_cast<double>(elapsed));
}

OutputClock::OutputClock() : before_{TimeSource::now(), 0, 1.0}, now_{before_} {}

int64_t OutputClock::nanosecondsAtHostTime(int64_t hostNanoseconds) const {
  MutexLock lock(lineMutex_);
  return (hostNanoseconds < now_.host ? before_ : now_).at(hostNanoseconds);
}

int64_t OutputClock::hostTimeAtNanoseconds(int64_t nanoseconds) const {
  MutexLock lock(lineMutex_);
  return (nanoseconds < now_.shown ? before_ : now_).inverse(nanoseconds);
}

void OutputClock::steer(double rate) {
  MutexLock lock(lineMutex_);
  const int64_t host = std::max(TimeSource::now(), now_.host);
  before_ = now_;
  now_ = {host, before_.at(host), std::clamp(rate, 0.9, 1.1)};
}

double OutputClock::rate() const {
  MutexLock lock(lineMutex_);
  return now_.rate;
}

}  // namespace zaffo::media
