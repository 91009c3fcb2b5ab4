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

}  // namespace zaffo::network
