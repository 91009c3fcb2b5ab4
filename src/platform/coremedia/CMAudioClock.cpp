// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMAudioClock.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

#include "platform/TimeSource.h"

namespace zaffo {

namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr int64_t kGreatestBend = 100'000'000;  // nanoseconds
constexpr double kSteepestBend = 0.05;          // seconds a second
constexpr int64_t kShortestBend = 200'000'000;  // host nanoseconds; evens out jitter of anchors

int64_t toInteger(double nanoseconds) {
  constexpr double kLimit = 9.2e18;
  return std::llround(std::clamp(nanoseconds, -kLimit, kLimit));
}

}  // namespace

std::shared_ptr<CMAudioClock> CMAudioClock::create() {
  return std::shared_ptr<CMAudioClock>(new CMAudioClock);
}

int64_t CMAudioClock::Piece::valueAt(int64_t hostNanoseconds) const {
  return value + toInteger(rate * static_cast<double>(hostNanoseconds - host));
}

int64_t CMAudioClock::Piece::hostAt(int64_t nanoseconds) const {
  return host + toInteger(std::ceil(static_cast<double>(nanoseconds - value) / rate));
}

std::size_t CMAudioClock::indexAt(const Line& line, int64_t hostNanoseconds) {
  std::size_t index = line.size() - 1;
  while (index > 0 && hostNanoseconds < line[index].host) --index;
  return index;
}

int64_t CMAudioClock::valueOn(const Line& line, int64_t hostNanoseconds) {
  // Never before the first piece: a reader that was held up since it took the time may have seen
  // more than that piece, run backwards, would show.
  const int64_t host = std::max(hostNanoseconds, line.front().host);
  return line[indexAt(line, host)].valueAt(host);
}

CMAudioClock::Course CMAudioClock::bend(int64_t shown, const Piece& device, int64_t now) {
  const Piece onDevice{now, device.valueAt(now), device.rate};
  const int64_t behind = onDevice.value - shown;
  if (behind > kGreatestBend) return {onDevice, onDevice};

  int64_t duration = 0;
  double rate = 0;
  if (behind >= -kGreatestBend) {
    duration =
        std::max(kShortestBend, toInteger(static_cast<double>(std::abs(behind)) / kSteepestBend));
    rate = device.rate + static_cast<double>(behind) / static_cast<double>(duration);
  }
  if (rate > 0) {
    const int64_t end = now + duration;
    const Piece bent{now, shown, rate};
    return {bent, Piece{end, std::max(bent.valueAt(end), device.valueAt(end)), device.rate}};
  }
  const Piece still{now, shown, 0};
  if (device.rate <= 0) return {still, still};
  return {still, Piece{std::max(now, device.hostAt(shown)), shown, device.rate}};
}

void CMAudioClock::setAnchor(int64_t deviceNanoseconds, int64_t hostNanoseconds, double rate) {
  uint64_t sequence = sequence_.load(std::memory_order_relaxed);
  if (sequence % 2 != 0 || !sequence_.compare_exchange_strong(sequence, sequence + 1)) {
    return;
  }
  const Piece device{hostNanoseconds, deviceNanoseconds,
                     std::isfinite(rate) ? std::max(rate, 0.0) : 0};
  // Taken while readers are held off: what they were shown until now belongs to earlier times.
  const int64_t now = TimeSource::now();
  Line present;
  for (std::size_t i = 0; i < present.size(); ++i) {
    present[i] = {pieces_[i].host.load(std::memory_order_relaxed),
                  pieces_[i].value.load(std::memory_order_relaxed),
                  pieces_[i].rate.load(std::memory_order_relaxed)};
  }
  Course course;
  if (anchored_.load(std::memory_order_relaxed)) {
    course = bend(valueOn(present, now), device, now);
  } else {
    anchored_.store(true, std::memory_order_relaxed);
    course.bent = {now, std::max<int64_t>(device.valueAt(now), 0), device.rate};
    course.after = course.bent;
  }
  Line next;
  std::size_t past = indexAt(present, now);
  for (std::size_t i = next.size() - 2; i-- > 0; past -= past > 0 ? 1 : 0) next[i] = present[past];
  next[next.size() - 2] = course.bent;
  next[next.size() - 1] = course.after;
  store(next);
  sequence_.store(sequence + 2, std::memory_order_release);
}

void CMAudioClock::store(const Line& line) {
  // Each store releases: a reader that sees it also sees that the sequence is odd.
  for (std::size_t i = 0; i < line.size(); ++i) {
    pieces_[i].host.store(line[i].host, std::memory_order_release);
    pieces_[i].value.store(line[i].value, std::memory_order_release);
    pieces_[i].rate.store(line[i].rate, std::memory_order_release);
  }
}

CMAudioClock::Line CMAudioClock::line() const {
  for (;;) {
    const uint64_t before = sequence_.load();
    Line line;
    for (std::size_t i = 0; i < line.size(); ++i) {
      line[i] = {pieces_[i].host.load(std::memory_order_acquire),
                 pieces_[i].value.load(std::memory_order_acquire),
                 pieces_[i].rate.load(std::memory_order_acquire)};
    }
    if (before % 2 == 0 && sequence_.load() == before) return line;
    std::this_thread::yield();
  }
}

int64_t CMAudioClock::nanosecondsAtHostTime(int64_t hostNanoseconds) const {
  return valueOn(line(), hostNanoseconds);
}

int64_t CMAudioClock::hostTimeAtNanoseconds(int64_t nanoseconds) const {
  const Line present = line();
  std::size_t index = present.size() - 1;
  while (index > 0 && nanoseconds < present[index].value) --index;
  const Piece& piece = present[index];
  const int64_t next = index + 1 < present.size() ? present[index + 1].host : kNever;
  if (piece.rate > 0) return std::min(piece.hostAt(nanoseconds), next);
  return nanoseconds <= piece.value ? piece.host : next;
}

int32_t CMAudioClockCreate(std::shared_ptr<CMAudioClock>* clockOut) {
  if (!clockOut) return kCMClockError_MissingRequiredParameter;
  *clockOut = CMAudioClock::create();
  (*clockOut)->setAnchor(0, TimeSource::now());
  return 0;
}

}  // namespace zaffo
