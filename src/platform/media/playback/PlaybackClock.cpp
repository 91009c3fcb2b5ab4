// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/PlaybackClock.h"

namespace zaffo::media {

PlaybackClock::PlaybackClock(CMTime duration)
    : duration_(duration), timebase_(CMTimebase::create(CMClockGetHostTimeClock())) {}

CMTime PlaybackClock::clamped(CMTime time) const {
  if (CMTIME_IS_NUMERIC(duration_)) time = CMTimeMinimum(time, duration_);
  return CMTimeMaximum(time, kCMTimeZero);
}

CMTime PlaybackClock::positionAt(int64_t host) const {
  const CMTime time = timeAt(host);
  MutexLock lock(placeMutex_);
  return clamped(CMTimeMaximum(time, place_));
}

void PlaybackClock::standAt(CMTime time, int64_t host) {
  // In two steps: whoever observes the timebase sees how far it ran before it is set elsewhere.
  if (timebase_->rate() != 0) timebase_->setRateAndAnchorTime(0, timeAt(host), host);
  setPlace(time);
  timebase_->setRateAndAnchorTime(0, time, host);
}

void PlaybackClock::start(double rate, int64_t start, int64_t host) {
  const CMTime position = positionAt(host);
  setPlace(position);
  timebase_->setRateAndAnchorTime(rate, position, start);
}

bool PlaybackClock::changeRate(double rate, int64_t host) {
  const CMTime present = timeAt(host);
  if (present < positionAt(host)) return false;
  setPlace(present);
  timebase_->setRateAndAnchorTime(rate, present, host);
  return true;
}

void PlaybackClock::setPlace(CMTime time) {
  MutexLock lock(placeMutex_);
  place_ = time;
}

}  // namespace zaffo::media
