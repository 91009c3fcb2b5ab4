// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/media/source/ByteSource.h"
#include "platform/media/source/CbcDecryption.h"
#include "platform/network/HttpResource.h"
#include "platform/network/Playlist.h"
#include "platform/streaming/SmallBytes.h"

namespace zaffo::streaming {

/// How a segment is encrypted: the key and the vector of AES-128.
struct SegmentCipher {
  std::shared_ptr<SmallBytes> key;
  media::CipherBlock vector{};
};

/// The bytes of a stream's segment: what its kind begins with, if there is such a header, then its
/// own, which are a resource or a part of one, decrypted. Thread: any, several at once.
class SegmentBytes final : public media::ByteSource {
 public:
  /// `header` may be null.
  SegmentBytes(std::shared_ptr<network::HttpResource> body, network::ByteRange range,
               std::shared_ptr<SmallBytes> header, std::optional<SegmentCipher> cipher = {});

  [[nodiscard]] int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) override;
  [[nodiscard]] std::unique_ptr<Want> want(int64_t offset, int64_t count,
                                           std::function<void()> handler) override;
  [[nodiscard]] int64_t worthGoingOn() const override { return body_->worthGoingOn(); }
  /// Counts from where its resource was read to last.
  [[nodiscard]] Ahead ahead() const override;
  [[nodiscard]] std::optional<int64_t> size() const override;
  [[nodiscard]] NSErrorPtr error() const override;
  [[nodiscard]] const std::string& name() const override { return body_->name(); }

  /// Has its first bytes brought; the resource then reads on ahead. For as long as this lives.
  [[nodiscard]] std::unique_ptr<Want> wantFirst() {
    return want(0, 1, [] {});
  }
  /// Of its own bytes, without the header; null while that is not known.
  [[nodiscard]] std::optional<int64_t> bodySize() const;

 private:
  [[nodiscard]] int64_t headerSize() const;
  [[nodiscard]] int64_t readBody(int64_t place, std::span<uint8_t> bytes);
  [[nodiscard]] int64_t readEncrypted(int64_t place, std::span<uint8_t> bytes);
  [[nodiscard]] int64_t decrypt(int64_t first, std::span<uint8_t> blocks,
                                media::CipherBlock before);
  [[nodiscard]] int64_t readCipher(int64_t from, std::span<uint8_t> bytes);
  [[nodiscard]] bool isHeld(int64_t place);
  [[nodiscard]] SmallBytes* missing() const;

  const std::shared_ptr<network::HttpResource> body_;
  const network::ByteRange range_;
  const std::shared_ptr<SmallBytes> header_;
  const std::optional<SegmentCipher> cipher_;
};

}  // namespace zaffo::streaming
