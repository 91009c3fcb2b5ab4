// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Freshness.h"

#include <algorithm>

namespace zaffo::network {

namespace {
constexpr int64_t kNanoseconds = 1'000'000'000;
constexpr int64_t kLongest = int64_t{365} * 24 * 3600;
}  // namespace

void Freshness::learn(const HttpHead& head, int64_t now) {
  const CacheControl control = head.cacheControl();
  mayKeep_ = !control.forbidsKeeping;
  int64_t seconds = control.maxAge.value_or(kUsualSeconds);
  if (control.maxAge) seconds -= std::min(head.age(), seconds);
  if (control.demandsAsking) seconds = 0;
  end_ = now + std::min(seconds, kLongest) * kNanoseconds;
}

void Freshness::adopt(int64_t seconds, int64_t now) {
  mayKeep_ = true;
  end_ = now + std::clamp<int64_t>(seconds, 0, kLongest) * kNanoseconds;
}

int64_t Freshness::secondsLeft(int64_t now) const {
  return isFresh(now) ? (end_ - now) / kNanoseconds : 0;
}

}  // namespace zaffo::network
