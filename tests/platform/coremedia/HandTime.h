#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "platform/TimeSource.h"

namespace zaffo {

/// The time under the clocks while it exists: stands still until a test sets it. Rings no alarm.
class HandTime final : public TimeSource {
 public:
  HandTime() { replace(this); }
  ~HandTime() override { replace(nullptr); }
  HandTime(const HandTime&) = delete;
  HandTime& operator=(const HandTime&) = delete;

  int64_t nanoseconds() const override { return now_.load(); }
  void setAlarm(int64_t, std::function<void()>) override {}
  void set(int64_t nanoseconds) { now_.store(nanoseconds); }
  void advance(int64_t nanoseconds) { now_.fetch_add(nanoseconds); }

 private:
  std::atomic<int64_t> now_{1'000'000'000'000};
};

inline constexpr int64_t kMillisecond = 1'000'000;
inline constexpr int64_t kSecond = 1'000'000'000;

}  // namespace zaffo
