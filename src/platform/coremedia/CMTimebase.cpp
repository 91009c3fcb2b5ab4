// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMTimebase.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <vector>

#include "platform/Mutex.h"
#include "platform/TimeSource.h"

namespace zaffo {

namespace {

constexpr CMTimeScale kNanoseconds = 1'000'000'000;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

int64_t toNanoseconds(CMTime time) {
  const CMTime converted = CMTimeConvertScale(time, kNanoseconds);
  if (CMTIME_IS_NUMERIC(converted)) return converted.value;
  return CMTIME_IS_NEGATIVE_INFINITY(converted) ? std::numeric_limits<int64_t>::min() : kNever;
}

int64_t toInteger(double nanoseconds) {
  constexpr double kLimit = 9.2e18;
  return std::llround(std::clamp(nanoseconds, -kLimit, kLimit));
}

int64_t addSaturating(int64_t a, int64_t b) {
  if (b > 0 && a > kNever - b) return kNever;
  if (b < 0 && a < std::numeric_limits<int64_t>::min() - b) {
    return std::numeric_limits<int64_t>::min();
  }
  return a + b;
}

double difference(int64_t a, int64_t b) {  // a - b, which need not fit an integer
  const auto unsignedDifference = static_cast<uint64_t>(a) - static_cast<uint64_t>(b);
  return a >= b ? static_cast<double>(unsignedDifference)
                : -static_cast<double>(0 - unsignedDifference);
}

/// When the clock showed `master`, the media was at `media`, running at `rate` from there.
struct Line {
  std::shared_ptr<const CMClock> clock;
  double rate = 0;
  int64_t master = 0;
  int64_t media = 0;
  CMTime still = kCMTimeZero;  ///< `media` as it was set, shown while the rate is 0

  [[nodiscard]] int64_t mediaAt(int64_t masterNanoseconds) const {
    return addSaturating(media, toInteger(rate * difference(masterNanoseconds, master)));
  }
  [[nodiscard]] CMTime timeAt(int64_t hostNanoseconds) const {
    if (rate == 0) return still;
    return CMTimeMake(mediaAt(clock->nanosecondsAtHostTime(hostNanoseconds)), kNanoseconds);
  }
  [[nodiscard]] bool hasReached(int64_t nanoseconds, int64_t hostNanoseconds) const {
    const int64_t present = mediaAt(clock->nanosecondsAtHostTime(hostNanoseconds));
    return rate > 0 ? present >= nanoseconds : present <= nanoseconds;
  }
};

struct Observer {
  std::function<void()> changed;
  std::atomic<bool> dropped{false};
};

}  // namespace

struct CMTimebase::State {
  Mutex lineMutex;
  Line line ZAFFO_GUARDED_BY(lineMutex);

  Mutex observersMutex;
  std::vector<std::weak_ptr<Observer>> observers ZAFFO_GUARDED_BY(observersMutex);

  Line present() ZAFFO_EXCLUDES(lineMutex) {
    const MutexLock lock(lineMutex);
    return line;
  }

  void setWhileLocked(double rate, CMTime time, int64_t hostNanoseconds) ZAFFO_REQUIRES(lineMutex) {
    line.rate = rate;
    line.master = line.clock->nanosecondsAtHostTime(hostNanoseconds);
    line.media = toNanoseconds(time);
    line.still = time;
  }

  void notify() ZAFFO_EXCLUDES(lineMutex, observersMutex) {
    std::vector<std::shared_ptr<Observer>> present;
    {
      const MutexLock lock(observersMutex);
      std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
      present.reserve(observers.size());
      for (const auto& observer : observers) {
        if (auto held = observer.lock()) present.push_back(std::move(held));
      }
    }
    for (const auto& observer : present) {
      if (!observer->dropped.load(std::memory_order_acquire)) observer->changed();
    }
  }
};

std::shared_ptr<CMTimebase> CMTimebase::create(std::shared_ptr<const CMClock> masterClock) {
  if (!masterClock) return nullptr;
  return std::shared_ptr<CMTimebase>(new CMTimebase(std::move(masterClock)));
}

CMTimebase::CMTimebase(std::shared_ptr<const CMClock> masterClock)
    : state_(std::make_shared<State>()) {
  const MutexLock lock(state_->lineMutex);
  state_->line.clock = std::move(masterClock);
}

CMTimebase::~CMTimebase() = default;

CMTime CMTimebase::time() const {
  // The line first: a time taken before a change must not be put on the line after it.
  const Line line = state_->present();
  return line.timeAt(TimeSource::now());
}

double CMTimebase::rate() const {
  const MutexLock lock(state_->lineMutex);
  return state_->line.rate;
}

CMTime CMTimebase::anchorTime() const {
  const MutexLock lock(state_->lineMutex);
  return state_->line.still;
}

std::shared_ptr<const CMClock> CMTimebase::masterClock() const {
  const MutexLock lock(state_->lineMutex);
  return state_->line.clock;
}

CMTime CMTimebase::timeAtHostTime(int64_t hostNanoseconds) const {
  return state_->present().timeAt(hostNanoseconds);
}

std::optional<int64_t> CMTimebase::hostTimeAtTime(CMTime time) const {
  if (!CMTIME_IS_NUMERIC(time)) return std::nullopt;
  const Line line = state_->present();
  if (line.rate == 0) return std::nullopt;
  const int64_t wanted = toNanoseconds(time);
  const int64_t now = TimeSource::now();
  if (line.hasReached(wanted, now)) {
    const bool isThere = line.mediaAt(line.clock->nanosecondsAtHostTime(now)) == wanted;
    return isThere ? std::optional(now) : std::nullopt;
  }
  const double masterAhead = std::ceil(difference(wanted, line.media) / line.rate);
  const int64_t master = addSaturating(line.master, toInteger(masterAhead));
  int64_t host = line.clock->hostTimeAtNanoseconds(master);
  if (host == kNever || master == kNever) return std::nullopt;
  host = std::max(host, now);
  // Rounding on the way may leave it a nanosecond or two short.
  for (int i = 0; i < 4 && !line.hasReached(wanted, host); ++i) ++host;
  return host;
}

void CMTimebase::setTime(CMTime time) {
  if (!CMTIME_IS_NUMERIC(time)) return;
  {
    const MutexLock lock(state_->lineMutex);
    state_->setWhileLocked(state_->line.rate, time, TimeSource::now());
  }
  state_->notify();
}

void CMTimebase::setRate(double rate) {
  if (!std::isfinite(rate)) return;
  {
    const MutexLock lock(state_->lineMutex);
    if (state_->line.rate == rate) return;
    const int64_t now = TimeSource::now();
    state_->setWhileLocked(rate, state_->line.timeAt(now), now);
  }
  state_->notify();
}

void CMTimebase::setRateAndAnchorTime(double rate, CMTime time, int64_t hostNanoseconds) {
  if (!std::isfinite(rate) || !CMTIME_IS_NUMERIC(time)) return;
  {
    const MutexLock lock(state_->lineMutex);
    state_->setWhileLocked(rate, time, hostNanoseconds);
  }
  state_->notify();
}

void CMTimebase::setMasterClock(std::shared_ptr<const CMClock> masterClock) {
  if (!masterClock) return;
  {
    const MutexLock lock(state_->lineMutex);
    Line& line = state_->line;
    if (line.clock == masterClock) return;
    const int64_t now = TimeSource::now();
    const CMTime present = line.timeAt(now);
    line.clock.swap(masterClock);
    state_->setWhileLocked(line.rate, present, now);
  }
  state_->notify();  // the clock before is let go after this, with no lock held
}

std::shared_ptr<void> CMTimebase::observeChanges(std::function<void()> changed) {
  const auto observer = std::make_shared<Observer>();
  observer->changed = std::move(changed);
  {
    const MutexLock lock(state_->observersMutex);
    std::erase_if(state_->observers, [](const auto& each) { return each.expired(); });
    state_->observers.push_back(observer);
  }
  Observer* const key = observer.get();
  return std::shared_ptr<void>(
      key, [observer](void*) { observer->dropped.store(true, std::memory_order_release); });
}

}  // namespace zaffo
