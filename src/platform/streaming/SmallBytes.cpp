// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/SmallBytes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "platform/network/NetworkError.h"

namespace zaffo::streaming {

using media::Outcome;

SmallBytes::SmallBytes(std::shared_ptr<network::HttpResource> resource, network::ByteRange range,
                       int64_t most)
    : resource_(std::move(resource)), range_(range), most_(most) {
  // What is wanted stays in memory: no list may claim as much of that as it likes.
  if (range_.length.value_or(0) > most_) error_ = whyNotTaken(true);
}

Outcome SmallBytes::step() {
  MutexLock lock(bytesMutex_);
  if (isWhole_) return Outcome::Ready;
  if (error_) return Outcome::Error;
  return readWhileLocked();
}

Outcome SmallBytes::readWhileLocked() {
  std::array<uint8_t, 16 * 1024> piece;
  for (;;) {
    const auto held = static_cast<int64_t>(bytes_.size());
    const int64_t left = range_.length.value_or(most_ + 1) - held;
    const auto size =
        static_cast<std::size_t>(std::clamp<int64_t>(left, 0, static_cast<int64_t>(piece.size())));
    const int64_t count =
        size == 0 ? 0 : resource_->readHeld(range_.offset + held, std::span(piece).first(size));
    if (count == -EAGAIN) return Outcome::Again;
    if (count > 0) {
      bytes_.insert(bytes_.end(), piece.begin(), piece.begin() + count);
      continue;
    }
    const bool isTooLong = held > most_;
    const bool isShort = range_.length && held < *range_.length;
    isWhole_ = count == 0 && !isTooLong && !isShort;
    if (isWhole_) return Outcome::Ready;
    error_ = count < 0 ? resource_->error() : nullptr;
    if (!error_) error_ = whyNotTaken(isTooLong);
    return Outcome::Error;
  }
}

NSErrorPtr SmallBytes::whyNotTaken(bool isTooLong) const {
  return network::networkError(
      isTooLong ? network::NSURLErrorDataLengthExceedsMaximum
                : network::NSURLErrorBadServerResponse,
      "\"" + name() + (isTooLong ? "\" is too long." : "\" is shorter than it should be."));
}

std::unique_ptr<SmallBytes::Want> SmallBytes::want(std::function<void()> handler) {
  return resource_->want(range_.offset, range_.length.value_or(most_ + 1), std::move(handler));
}

std::span<const uint8_t> SmallBytes::bytes() const {
  MutexLock lock(bytesMutex_);
  return bytes_;
}

NSErrorPtr SmallBytes::error() const {
  MutexLock lock(bytesMutex_);
  return error_;
}

}  // namespace zaffo::streaming
