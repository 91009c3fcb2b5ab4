// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Throughput.h"

#include <algorithm>
#include <cmath>

namespace zaffo::network {

namespace {
constexpr double kNanoseconds = 1e9;
/// A shorter stretch says more of how reads fall than of the link.
constexpr int64_t kShortest = 100'000'000;
/// Less than this comes out of a socket's buffer in no time.
constexpr int64_t kFew = 32 * 1024;
}  // namespace

void Throughput::Average::add(double bits, double seconds) {
  const double kept = std::exp2(-seconds / halfLife_);
  bits_ = bits_ * kept + bits;
  seconds_ = seconds_ * kept + seconds;
}

void Throughput::begin(int64_t now) {
  if (transfers_++ == 0) since_ = now;
}

void Throughput::receive(int64_t bytes, int64_t now) {
  pending_ += bytes;
  total_ += bytes;
  if (now - since_ >= kShortest) close(now);
}

void Throughput::end(int64_t now) {
  if (transfers_ == 0 || --transfers_ > 0) return;
  if (pending_ >= kFew) close(now);
  pending_ = 0;
}

void Throughput::close(int64_t now) {
  // Bytes that came all at once were read in no less than a millisecond.
  const double seconds = std::max(static_cast<double>(now - since_) / kNanoseconds, 0.001);
  const double bits = static_cast<double>(pending_) * 8;
  brief_.add(bits, seconds);
  lasting_.add(bits, seconds);
  pending_ = 0;
  since_ = now;
}

std::optional<double> Throughput::bitsPerSecond() const {
  if (total_ - pending_ < kFew) return std::nullopt;
  return std::min(brief_.value(), lasting_.value());
}

}  // namespace zaffo::network
