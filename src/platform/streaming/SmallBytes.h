// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/Outcome.h"
#include "platform/network/HttpResource.h"
#include "platform/network/Playlist.h"

namespace zaffo::streaming {

/// All of something small at an address, or a part of it: a playlist, a key, what segments begin
/// with. Never waits. Thread: any, several at once.
class SmallBytes {
 public:
  using Want = media::ByteSource::Want;

  /// No more than `most` bytes are taken; more are an error.
  SmallBytes(std::shared_ptr<network::HttpResource> resource, network::ByteRange range,
             int64_t most);

  /// Takes what is here: Ready when that is all, Again where more is to be wanted first.
  [[nodiscard]] media::Outcome step();
  /// `handler` is called as that of a ByteSource::Want is: step() may get further then.
  [[nodiscard]] std::unique_ptr<Want> want(std::function<void()> handler);

  /// Once it is Ready; unchanged from then on.
  [[nodiscard]] std::span<const uint8_t> bytes() const;
  /// Why it is Error.
  [[nodiscard]] NSErrorPtr error() const;
  /// Where it was asked for, and where the server led for it.
  [[nodiscard]] const std::string& name() const { return resource_->name(); }
  [[nodiscard]] network::URL location() const { return resource_->location(); }

 private:
  [[nodiscard]] media::Outcome readWhileLocked() ZAFFO_REQUIRES(bytesMutex_);
  [[nodiscard]] NSErrorPtr whyNotTaken(bool isTooLong) const;

  const std::shared_ptr<network::HttpResource> resource_;
  const network::ByteRange range_;
  const int64_t most_;
  mutable Mutex bytesMutex_;
  std::vector<uint8_t> bytes_ ZAFFO_GUARDED_BY(bytesMutex_);
  bool isWhole_ ZAFFO_GUARDED_BY(bytesMutex_) = false;
  NSErrorPtr error_ ZAFFO_GUARDED_BY(bytesMutex_);
};

}  // namespace zaffo::streaming
