// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/NSError.h"
#include "platform/network/AddressRules.h"
#include "platform/network/HttpHead.h"
#include "platform/network/PreloadGate.h"

namespace zaffo::network {

/// How long a server may keep one waiting.
struct HttpLimits {
  std::chrono::milliseconds connect{10'000};  ///< until a connection stands, with its secrecy
  std::chrono::milliseconds firstByte{
      15'000};                              ///< from asking until the head of the answer is here
  std::chrono::milliseconds stall{10'000};  ///< in which at least `leastBytes` come
  int64_t leastBytes = 1000;
};

using HttpField = std::pair<std::string, std::string>;  // name and value

/// One GET of one address: no redirect is followed, nothing is tried again.
struct HttpRequest {
  URL address;
  std::vector<HttpField> fields;  ///< besides the client's own
  HttpLimits limits;
};

/// What becomes of a request. Thread: network.
class HttpListener {
 public:
  virtual ~HttpListener() = default;
  /// The head of the final answer is here.
  virtual void didReceiveHead(const HttpHead& head) = 0;
  /// Bytes of the body. False leaves them for later: they come again after resume().
  virtual bool didReceiveBytes(std::span<const uint8_t> bytes) = 0;
  /// The answer is whole, or `error` says why not; another try may succeed where `mayPass`.
  virtual void didEnd(const NSErrorPtr& error, bool mayPass) = 0;
};

/// A request that is under way. Its end is the end of its traffic; nothing is told any more.
/// Thread: network.
class HttpExchange {
 public:
  virtual ~HttpExchange() = default;
  /// Has bytes that were refused come again.
  virtual void resume() = 0;
};

/// Asks servers, by libcurl: connections are kept and shared, with HTTP/2 where it is offered, over
/// IPv4 and IPv6, through the proxies of the environment. Certificates are always verified, against
/// the authorities that SSL_CERT_FILE, SSL_CERT_DIR and CURL_CA_BUNDLE name, or the system's.
/// Thread: made anywhere; used on the network's; destroyed anywhere, when its exchanges are over.
class HttpClient {
 public:
  /// The process's; never destroyed.
  [[nodiscard]] static HttpClient& shared();

  HttpClient();
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// `listener` outlives the exchange, and is never called inside this.
  [[nodiscard]] std::unique_ptr<HttpExchange> start(HttpRequest request, HttpListener& listener);

  /// What keeps those who preload from the link while others wait. Thread: any.
  [[nodiscard]] const std::shared_ptr<PreloadGate>& preloadGate() const { return gate_; }

  /// As measured over all that came lately; null until enough did. Thread: any.
  [[nodiscard]] std::optional<double> bitsPerSecond() const;

 private:
  class Multi;
  class Exchange;

  std::shared_ptr<Multi> multi_;
  const std::shared_ptr<PreloadGate> gate_ = std::make_shared<PreloadGate>();
};

}  // namespace zaffo::network
