// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/SegmentBytes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "platform/network/NetworkError.h"

namespace zaffo::streaming {
namespace {

using media::Outcome;

constexpr auto kBlock = static_cast<int64_t>(media::kCipherBlock);
constexpr int64_t kMostDecrypted = int64_t{32} * 1024;
/// Of an encrypted segment whose size no server tells.
constexpr int64_t kLongestUntold = int64_t{32} << 20;

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
                           std::shared_ptr<SmallBytes> header, std::optional<SegmentCipher> cipher)
    : body_(std::move(body)),
      range_(range),
      header_(std::move(header)),
      cipher_(std::move(cipher)) {}

int64_t SegmentBytes::headerSize() const {
  return header_ ? static_cast<int64_t>(header_->bytes().size()) : 0;
}

int64_t SegmentBytes::readHeld(int64_t offset, std::span<uint8_t> bytes) {
  for (SmallBytes* part : {header_.get(), cipher_ ? cipher_->key.get() : nullptr}) {
    const Outcome outcome = part ? part->step() : Outcome::Ready;
    if (outcome == Outcome::Again) return -EAGAIN;
    if (outcome == Outcome::Error) return -EIO;
  }
  if (offset >= headerSize()) return readBody(offset - headerSize(), bytes);
  const auto rest = header_->bytes().subspan(static_cast<std::size_t>(offset));
  const std::size_t count = std::min(rest.size(), bytes.size());
  std::copy_n(rest.begin(), count, bytes.begin());
  return static_cast<int64_t>(count);
}

/// From `place` of the segment's own bytes on.
int64_t SegmentBytes::readBody(int64_t place, std::span<uint8_t> bytes) {
  if (cipher_) return readEncrypted(place, bytes);
  if (range_.length) {
    const int64_t left = std::max<int64_t>(0, *range_.length - place);
    bytes = bytes.first(std::min(bytes.size(), static_cast<std::size_t>(left)));
    if (bytes.empty()) return 0;
  }
  return body_->readHeld(range_.offset + place, bytes);
}

/// Decryption needs whole blocks, and the one before them. What the last one is padded with is no
/// part of the segment, so where that ends must be known.
int64_t SegmentBytes::readEncrypted(int64_t place, std::span<uint8_t> bytes) {
  const auto size = bodySize();
  if (!size) return body_->error() || isHeld(kLongestUntold - 1) ? -EIO : -EAGAIN;
  if (place >= *size) return 0;
  const int64_t first = place / kBlock * kBlock;
  const int64_t from = std::max<int64_t>(0, first - kBlock);
  const auto wanted = std::min(static_cast<int64_t>(bytes.size()), kMostDecrypted);
  const int64_t until = std::min(*size, (place + wanted + kBlock - 1) / kBlock * kBlock);
  std::array<uint8_t, kMostDecrypted + 2 * kBlock> piece;
  const int64_t count =
      readCipher(from, std::span(piece).first(static_cast<std::size_t>(until - from)));
  if (count < 0) return count;
  const int64_t whole = (from + count - first) / kBlock * kBlock;
  if (whole <= 0) return from + count < *size ? -EAGAIN : 0;
  const auto blocks = std::span(piece).subspan(static_cast<std::size_t>(first - from),
                                               static_cast<std::size_t>(whole));
  media::CipherBlock before = cipher_->vector;
  if (first > 0) std::copy_n(piece.begin(), before.size(), before.begin());
  const int64_t plain = decrypt(first, blocks, before);
  const int64_t given = std::min(plain - (place - first), static_cast<int64_t>(bytes.size()));
  if (given <= 0) return std::min<int64_t>(plain, 0);
  std::copy_n(blocks.begin() + (place - first), given, bytes.begin());
  return given;
}

/// As many of the encrypted bytes as are here; a negative errno when they cannot be had.
int64_t SegmentBytes::readCipher(int64_t from, std::span<uint8_t> bytes) {
  std::size_t count = 0;
  while (count < bytes.size()) {
    const int64_t offset = range_.offset + from + static_cast<int64_t>(count);
    const int64_t more = body_->readHeld(offset, bytes.subspan(count));
    if (more < 0 && more != -EAGAIN) return more;
    if (more <= 0) break;
    count += static_cast<std::size_t>(more);
  }
  return static_cast<int64_t>(count);
}

bool SegmentBytes::isHeld(int64_t place) {
  std::array<uint8_t, 1> byte{};
  return body_->readHeld(range_.offset + place, byte) > 0;
}

/// The number of bytes that are the segment's; a negative errno when it cannot be done.
int64_t SegmentBytes::decrypt(int64_t first, std::span<uint8_t> blocks, media::CipherBlock before) {
  const auto told = cipher_->key->bytes();
  media::CipherBlock key{};
  if (told.size() != key.size()) return -EIO;
  std::ranges::copy(told, key.begin());
  if (!media::decryptCbc(key, before, blocks)) return -ENOMEM;
  const auto count = static_cast<int64_t>(blocks.size());
  if (first + count < *bodySize()) return count;
  return count - static_cast<int64_t>(media::paddingOf(blocks.last(media::kCipherBlock)));
}

/// What is small and not here yet: the header, the key; null when both are.
SmallBytes* SegmentBytes::missing() const {
  if (header_ && header_->step() == Outcome::Again) return header_.get();
  if (cipher_ && cipher_->key->step() == Outcome::Again) return cipher_->key.get();
  return nullptr;
}

std::unique_ptr<media::ByteSource::Want> SegmentBytes::want(int64_t offset, int64_t count,
                                                            std::function<void()> handler) {
  if (SmallBytes* part = missing()) {
    auto first = body_->want(range_.offset, 1, [] {});
    return std::make_unique<BothWants>(std::move(first), part->want(std::move(handler)));
  }
  if (cipher_ && !bodySize()) {
    // The first byte tells; or else only the end does.
    return body_->want(range_.offset, isHeld(0) ? kLongestUntold : 1, std::move(handler));
  }
  int64_t place = std::max<int64_t>(0, offset - headerSize());
  if (cipher_) {
    const int64_t from = std::max<int64_t>(0, place / kBlock * kBlock - kBlock);
    count += place - from + kBlock;
    place = from;
  }
  if (range_.length)
    count = std::clamp<int64_t>(count, 0, std::max<int64_t>(0, *range_.length - place));
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
  // Less what the last block is padded with, which only decryption tells.
  if (cipher_) return std::nullopt;
  const auto body = bodySize();
  const bool isKnown = body && (!header_ || !header_->bytes().empty());
  return isKnown ? std::optional(*body + headerSize()) : std::nullopt;
}

NSErrorPtr SegmentBytes::error() const {
  NSErrorPtr error = header_ ? header_->error() : nullptr;
  if (!error && cipher_) error = cipher_->key->error();
  if (!error) error = body_->error();
  if (error || !cipher_ || cipher_->key->step() != Outcome::Ready) return error;
  if (cipher_->key->bytes().size() == media::kCipherBlock) return nullptr;
  return network::networkError(network::NSURLErrorCannotDecodeRawData,
                               "The key of the stream is not one.");
}

}  // namespace zaffo::streaming
