// SPDX-License-Identifier: Apache-2.0
#include "platform/coremedia/CMClock.h"

#include "platform/TimeSource.h"

namespace zaffo {

namespace {

class HostClock final : public CMClock {
 public:
  int64_t nanosecondsAtHostTime(int64_t hostNanoseconds) const override { return hostNanoseconds; }
  int64_t hostTimeAtNanoseconds(int64_t nanoseconds) const override { return nanoseconds; }
};

}  // namespace

CMTime CMClock::time() const {
  constexpr CMTimeScale kNanoseconds = 1'000'000'000;
  return CMTimeMake(nanosecondsAtHostTime(TimeSource::now()), kNanoseconds);
}

const std::shared_ptr<CMClock>& CMClockGetHostTimeClock() {
  static const std::shared_ptr<CMClock> clock = std::make_shared<HostClock>();
  return clock;
}

}  // namespace zaffo
