// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpClient.h"

#include <cstdlib>
#include <map>

#include "platform/TimeSource.h"
#include "platform/network/CurlCommon.h"
#include "platform/network/CurlMulti.h"
#include "platform/network/HttpTransfer.h"
#include "platform/network/NetworkLoop.h"
#include "platform/network/Throughput.h"

namespace zaffo::network {

namespace {

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

TrustedAuthorities authoritiesOfEnvironment() {
  TrustedAuthorities authorities{environment("SSL_CERT_FILE"), environment("SSL_CERT_DIR")};
  if (authorities.file.empty()) authorities.file = environment("CURL_CA_BUNDLE");
  return authorities;
}

}  // namespace

/// The transfers of a client. Thread: network, save for the throughput.
class HttpClient::Multi : public std::enable_shared_from_this<Multi>, public TransferMeter {
 public:
  Multi() : authorities_(authoritiesOfEnvironment()) {}
  ~Multi() override {
    for (const auto& [easy, transfer] : transfers_) curl_->remove(easy);
  }

  std::shared_ptr<HttpTransfer> start(HttpRequest request, HttpListener& listener) {
    auto& context = NetworkLoop::shared().context();
    const auto done = [this](CURL* easy, CURLcode code) { didEnd(easy, code); };
    if (!curl_) curl_ = std::make_unique<CurlMulti>(context, done);
    auto transfer = std::make_shared<HttpTransfer>(context, std::move(request), listener, *this);
    transfer->setUp(authorities_);
    transfer->setAbandon([this](CURL* easy) { remove(easy); });
    transfers_.emplace(transfer->easy(), transfer);
    curl_->add(transfer->easy());
    return transfer;
  }

  void remove(CURL* easy) {
    const auto found = transfers_.find(easy);
    if (found == transfers_.end()) return;
    curl_->remove(easy);
    transfers_.erase(found);
  }

  std::optional<double> bitsPerSecond() const {
    MutexLock lock(throughputMutex_);
    return throughput_.bitsPerSecond();
  }

 private:
  void didEnd(CURL* easy, CURLcode code) {
    const auto found = transfers_.find(easy);
    if (found == transfers_.end()) return;
    const auto transfer = found->second;
    curl_->remove(easy);
    transfers_.erase(found);
    transfer->finish(code);
  }

  void didBeginToReceive() override {
    MutexLock lock(throughputMutex_);
    throughput_.begin(TimeSource::now());
  }
  void didReceive(int64_t bytes) override {
    MutexLock lock(throughputMutex_);
    throughput_.receive(bytes, TimeSource::now());
  }
  void didStopReceiving() override {
    MutexLock lock(throughputMutex_);
    throughput_.end(TimeSource::now());
  }

  const TrustedAuthorities authorities_;
  std::unique_ptr<CurlMulti> curl_;
  std::map<CURL*, std::shared_ptr<HttpTransfer>> transfers_;
  mutable Mutex throughputMutex_;
  Throughput throughput_ ZAFFO_GUARDED_BY(throughputMutex_);
};

/// The listener's hold on a transfer. What it undoes waits for the loop's next turn, for it may go
/// inside a callback of libcurl.
class HttpClient::Exchange final : public HttpExchange {
 public:
  Exchange(std::shared_ptr<Multi> multi, std::shared_ptr<HttpTransfer> transfer)
      : multi_(std::move(multi)), transfer_(std::move(transfer)) {}
  ~Exchange() override {
    transfer_->silence();
    NetworkLoop::shared().post(
        [multi = multi_, transfer = transfer_] { multi->remove(transfer->easy()); });
  }
  void resume() override {
    NetworkLoop::shared().post([multi = multi_, transfer = transfer_] { transfer->resume(); });
  }

 private:
  const std::shared_ptr<Multi> multi_;
  const std::shared_ptr<HttpTransfer> transfer_;
};

HttpClient& HttpClient::shared() {
  static auto* const client = new HttpClient;
  return *client;
}

HttpClient::HttpClient() : multi_(std::make_shared<Multi>()) {}

HttpClient::~HttpClient() {
  NetworkLoop::shared().post([multi = std::move(multi_)] {});
}

std::unique_ptr<HttpExchange> HttpClient::start(HttpRequest request, HttpListener& listener) {
  return std::make_unique<Exchange>(multi_, multi_->start(std::move(request), listener));
}

std::optional<double> HttpClient::bitsPerSecond() const {
  return multi_->bitsPerSecond();
}

}  // namespace zaffo::network
