// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/media/source/ByteSource.h"
#include "platform/network/ByteBudget.h"
#include "platform/network/HttpDownload.h"

namespace zaffo::network {

class HttpResourceCore;

/// The bytes of an http or https address. What was read last and what lies ahead of it are kept in
/// memory, within the budget's bound; what is wanted may exceed it. One request at a time brings
/// the bytes, from the wanted place on and as far ahead as the bound allows; nothing is asked for
/// until something is wanted.
///
/// Its end, or that of the last Want before it was met, ends the traffic at once. Handlers of Wants
/// run on the network's thread and must be short. After a failure that may pass, a further Want
/// tries again. Thread: any.
class HttpResource final : public media::ByteSource {
 public:
  /// A few packets of the network's.
  static constexpr int64_t kWorthGoingOn = 4096;

  /// `address` is http or https. `client` and `budget` outlive it.
  explicit HttpResource(URL address, HttpOptions options = {},
                        HttpClient& client = HttpClient::shared(),
                        ByteBudget& budget = ByteBudget::shared());
  ~HttpResource() override;
  HttpResource(const HttpResource&) = delete;
  HttpResource& operator=(const HttpResource&) = delete;

  [[nodiscard]] int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) override;
  [[nodiscard]] std::unique_ptr<Want> want(int64_t offset, int64_t count,
                                           std::function<void()> handler) override;
  [[nodiscard]] int64_t worthGoingOn() const override { return kWorthGoingOn; }
  [[nodiscard]] Ahead ahead() const override;
  [[nodiscard]] std::optional<int64_t> size() const override;
  [[nodiscard]] NSErrorPtr error() const override;
  [[nodiscard]] const std::string& name() const override;
  /// Where the server led for the bytes that came last: what addresses in them are relative to.
  [[nodiscard]] URL location() const;

  // For PreloadBytes: bytes that nobody reads yet. They come in pieces, not ahead of what is
  // wanted, and only while nobody else waits. Each beginPreload() has its endPreload().
  void beginPreload();
  void endPreload();
  [[nodiscard]] int64_t readToPreload(int64_t offset, std::span<uint8_t> bytes);
  [[nodiscard]] std::unique_ptr<Want> wantToPreload(int64_t offset, int64_t count,
                                                    std::function<void()> handler);

  /// Nobody reads any more: ends the traffic and leaves the budget's shares to others, and keeps
  /// the bytes, which stay counted.
  void rest();
  /// Somebody reads again. Bytes that are fresh no longer are given only once the server has said
  /// that they are still the same, which is asked with the first Want. Reading that comes near the
  /// end of what was kept reads on ahead.
  void wake();
  /// Whether another reader may want what it holds, and the server lets one keep it.
  [[nodiscard]] bool isWorthKeeping() const;

 private:
  const std::shared_ptr<HttpResourceCore> core_;
  ByteBudget& budget_;
};

}  // namespace zaffo::network
