// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/network/CurlCommon.h"
#include "platform/network/HttpClient.h"
#include "platform/network/NetworkLoop.h"

namespace zaffo::network {

/// Whose signatures under certificates count; empty where the system's do.
struct TrustedAuthorities {
  std::string file, folder;
};

/// Is told when bytes come and when none can.
class TransferMeter {
 public:
  virtual ~TransferMeter() = default;
  virtual void didBeginToReceive() = 0;
  virtual void didReceive(int64_t bytes) = 0;
  virtual void didStopReceiving() = 0;
};

/// One request as a transfer of libcurl: what is asked, what the answer is to the listener, and the
/// limits in time and size that libcurl does not keep by itself. Thread: network.
class HttpTransfer : public std::enable_shared_from_this<HttpTransfer> {
 public:
  /// A head longer than this, over all its lines, is no answer.
  static constexpr std::size_t kLongestHead = std::size_t{64} * 1024;

  HttpTransfer(asio::io_context& context, HttpRequest request, HttpListener& listener,
               TransferMeter& meter);
  ~HttpTransfer();
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  void setUp(const TrustedAuthorities& authorities);
  /// What takes the transfer out of libcurl's when a time limit has passed.
  void setAbandon(std::function<void(CURL*)> abandon) { abandon_ = std::move(abandon); }

  [[nodiscard]] CURL* easy() const { return easy_.get(); }
  /// libcurl is done with it.
  void finish(CURLcode code);
  /// Tells the listener nothing any more.
  void silence();
  void resume();

 private:
  enum class Phase { Connecting, Waiting, Receiving, Paused, Ended };

  static int onAsk(void* self, char*, char*, int, int);
  static std::size_t onLine(char* data, std::size_t size, std::size_t count, void* self);
  static std::size_t onBytes(char* data, std::size_t size, std::size_t count, void* self);

  void setUpAddress();
  void setUpSecurity(const TrustedAuthorities& authorities);
  void enter(Phase phase);
  void startTimer(std::chrono::milliseconds limit);
  void limitPassed();
  [[nodiscard]] bool takeLine(std::string_view line);
  [[nodiscard]] std::size_t takeBytes(std::span<const uint8_t> bytes);
  void fail(NSErrorPtr error, bool mayPass);
  [[nodiscard]] std::string server() const;

  const HttpRequest request_;
  HttpListener* listener_;
  TransferMeter& meter_;
  const CurlEasyPtr easy_;
  CurlListPtr fields_;
  asio::steady_timer timer_;
  std::function<void(CURL*)> abandon_;
  Phase phase_ = Phase::Connecting;
  HttpHead head_;
  std::size_t headSize_ = 0;
  int64_t bytesInWindow_ = 0;
  CurlFailure failure_;
};

}  // namespace zaffo::network
