// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>

namespace zaffo {

/// Sets the alarm of the TimeSource that has taken the place of the machine's time; false when none
/// has. As with TimeSource::now(), none is asked any more once replace() has returned. Thread: any.
[[nodiscard]] bool setReplacementAlarm(int64_t deadline, std::function<void()> toRing);

}  // namespace zaffo
