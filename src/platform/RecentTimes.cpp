// SPDX-License-Identifier: Apache-2.0
#include "platform/RecentTimes.h"

#include "platform/Mutex.h"
#include "platform/TimeLog.h"

namespace zaffo {

namespace {

struct Log {
  Mutex timesMutex;
  TimeLog times ZAFFO_GUARDED_BY(timesMutex);
};

/// Never destroyed: work goes on while the process ends.
Log& logOf(TimedWork work) {
  static auto* const decoding = new Log;
  static auto* const drawing = new Log;
  return work == TimedWork::Decoding ? *decoding : *drawing;
}

}  // namespace

RecentTimes recentTimes(TimedWork work) {
  Log& log = logOf(work);
  MutexLock lock(log.timesMutex);
  return log.times.recent();
}

void noteTime(TimedWork work, int64_t nanoseconds) {
  Log& log = logOf(work);
  MutexLock lock(log.timesMutex);
  log.times.note(nanoseconds);
}

}  // namespace zaffo
