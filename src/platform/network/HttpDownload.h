// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "platform/network/Freshness.h"
#include "platform/network/HttpClient.h"
#include "platform/network/NetworkLoop.h"
#include "platform/network/Representation.h"
#include "platform/network/RetryPolicy.h"

namespace zaffo::network {

class DiskCache;

/// What an application may say about an address.
struct HttpOptions {
  /// Fields that every request to the address carries, cookies as a "Cookie" one. They go to no
  /// other scheme, host or port, wherever the server leads.
  std::vector<HttpField> fields;
  HttpLimits limits;
  RetryPolicy retries;
  AddressRules rules;
  int redirects = 10;  ///< followed at most, one after another
  /// Where its bytes are kept besides memory, unless the server forbids that; null for nowhere.
  std::shared_ptr<DiskCache> cache;

  /// Under which its bytes are kept: those that one person may read are not given to another.
  [[nodiscard]] std::string identityOf(const NSURL& address) const;
};

/// Where a resource is found and what is known of it, from one download to the next.
struct RemotePlace {
  RemotePlace(URL at, HttpOptions with);

  /// Asks at the address itself the next time, wherever that leads then.
  void startOver();

  const URL address;  ///< as the application has it
  const HttpOptions options;
  URL current;               ///< where the server led
  bool isLedForNow = false;  ///< it may lead elsewhere another time
  Representation representation;
  Freshness freshness;  ///< of the last answer
};

/// Brings a resource's bytes from one place on, in order: follows the server to other addresses,
/// tries again what may pass, and goes on where it was broken off. Its end is the end of its
/// traffic. Thread: network.
class HttpDownload final : private HttpListener {
 public:
  class Sink {
   public:
    virtual ~Sink() = default;
    /// Bytes, each following the ones before, save where a server that serves no ranges began
    /// anew. False leaves them for later: they come again after resume(). The download must not
    /// end inside of this.
    virtual bool didReceive(const HttpDownload& from, int64_t offset,
                            std::span<const uint8_t> bytes) = 0;
    /// The bytes that come now belong to another representation than those that were in doubt.
    virtual void didChange() = 0;
    /// All that was asked for came, or the resource's end; or why nothing more will come.
    virtual void didEnd(const HttpDownload& from, const NSErrorPtr& error) = 0;
  };

  /// From `offset` up to `end`, or to the resource's end. All three outlive it.
  HttpDownload(HttpClient& client, RemotePlace& place, Sink& sink, int64_t offset,
               std::optional<int64_t> end);

  void resume();
  /// Where the next byte comes from.
  [[nodiscard]] int64_t position() const { return position_; }
  [[nodiscard]] std::optional<int64_t> end() const { return end_; }

 private:
  using Verdict = Representation::Verdict;

  void didReceiveHead(const HttpHead& head) override;
  bool didReceiveBytes(std::span<const uint8_t> bytes) override;
  void didEnd(const NSErrorPtr& error, bool mayPass) override;

  void ask();
  void askSoon(std::chrono::milliseconds pause);
  void follow();
  void goOn();
  void bodyEnded();
  void tryAgain(const NSErrorPtr& error, std::optional<int64_t> retryAfter);
  void refuse(const NSErrorPtr& error);
  [[nodiscard]] std::optional<int64_t> lastPlace() const;

  HttpClient& client_;
  RemotePlace& place_;
  Sink& sink_;
  int64_t position_;
  std::optional<int64_t> end_;
  asio::steady_timer timer_;
  std::unique_ptr<HttpExchange> exchange_;
  Verdict verdict_;
  std::string location_;
  bool hasHead_ = false;
  int redirects_ = 0;
  int failures_ = 0;
  int64_t progress_ = 0;  // bytes since the last failure
  std::minstd_rand chance_{std::random_device()()};
  const std::shared_ptr<int> life_ = std::make_shared<int>();
};

}  // namespace zaffo::network
