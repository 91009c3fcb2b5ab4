// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/SegmentBytes.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace zaffo::streaming {
namespace {

using media::Outcome;

/// Bytes of the body and the header at once, so that neither waits for the other.
class BothWants final : public media::ByteSource::Want {
 public:
  BothWants(std::unique_ptr<Want> one, std::unique_ptr<Want> other)
      : one_(std::move(one)), other_(std::move(other)) {}

 private:
  const std::unique_ptr<Want> one_, other_;
};

}  // namespace

SegmentBytes::SegmentBytes(std::shared_ptr<network::HttpResource> body, network::ByteRange range,
                           std::shared_ptr<SmallBytes> header)
    : body_(std::move(body)), range_(range), header_(std::move(header)) {}

int64_t SegmentBytes::headerSize() const {
  return header_ ? static_cast<int64_t>(header_->bytes().size()) : 0;
}

int64_t SegmentBytes::readHeld(int64_t offset, std::span<uint8_t> bytes) {
  if (header_) {
    const Outcome outcome = header_->step();
    if (outcome == Outcome::Again) return -EAGAIN;
    if (outcome == Outcome::Error) return -EIO;
    const auto front = header_->bytes();
    if (offset < static_cast<int64_t>(front.size())) {
      const auto from = front.subspan(static_cast<std::size_t>(offset));
      const std::size_t count = std::min(from.size(), bytes.size());
      std::copy_n(from.begin(), count, bytes.begin());
      return static_cast<int64_t>(count);
    }
  }
  const int64_t place = offset - headerSize();
  if (range_.length) {
    const int64_t left = std::max<int64_t>(0, *range_.length - place);
    bytes = bytes.first(std::min(bytes.size(), static_cast<std::size_t>(left)));
    if (bytes.empty()) return 0;
  }
  return body_->readHeld(range_.offset + place, bytes);
}

std::unique_ptr<media::ByteSource::Want> SegmentBytes::want(int64_t offset, int64_t count,
                                                            std::function<void()> handler) {
  if (header_ && header_->step() == Outcome::Again) {
    auto first = body_->want(range_.offset, 1, [] {});
    return std::make_unique<BothWants>(std::move(first), header_->want(std::move(handler)));
  }
  const int64_t place = std::max<int64_t>(0, offset - headerSize());
  if (range_.length) count = std::clamp<int64_t>(count, 0, *range_.length - place);
  return body_->want(range_.offset + place, count, std::move(handler));
}

media::ByteSource::Ahead SegmentBytes::ahead() const {
  Ahead ahead = body_->ahead();
  const auto size = bodySize();
  if (range_.length && size && ahead.count >= *size) ahead.isRest = true;
  return ahead;
}

std::optional<int64_t> SegmentBytes::bodySize() const {
  if (range_.length) return range_.length;
  const auto all = body_->size();
  return all ? std::optional(std::max<int64_t>(0, *all - range_.offset)) : std::nullopt;
}

std::optional<int64_t> SegmentBytes::size() const {
  const auto body = bodySize();
  const bool isKnown = body && (!header_ || !header_->bytes().empty());
  return isKnown ? std::optional(*body + headerSize()) : std::nullopt;
}

NSErrorPtr SegmentBytes::error() const {
  NSErrorPtr error = header_ ? header_->error() : nullptr;
  return error ? error : body_->error();
}

}  // namespace zaffo::streaming
