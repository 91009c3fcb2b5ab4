// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamClock.h"

#include <cmath>

namespace zaffo::streaming {
namespace {

/// After which the times of MPEG-TS begin again at zero.
constexpr CMTime kRound = CMTimeMake(int64_t{1} << 33, 90'000);
/// Times that lie farther from where the list has them belong to another run, untold.
constexpr double kFarthestSeconds = 10;
constexpr double kMostRounds = 1e6;

}  // namespace

CMTime StreamClock::offsetFor(int run, CMTime told, CMTime listed) {
  MutexLock lock(offsetsMutex_);
  const CMTime own = listed - told;
  const auto [known, isNew] = offsets_.try_emplace(run, own);
  if (isNew) return own;
  const double difference = CMTimeGetSeconds(own - known->second);
  const double rounds = std::round(difference / CMTimeGetSeconds(kRound));
  if (!(std::abs(rounds) < kMostRounds)) return own;
  const CMTime offset = known->second + CMTimeMultiply(kRound, static_cast<int32_t>(rounds));
  const bool isFar = std::abs(CMTimeGetSeconds(own - offset)) > kFarthestSeconds;
  return isFar ? own : offset;
}

}  // namespace zaffo::streaming
