// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

#include <functional>
#include <map>
#include <memory>

#include "platform/dispatch/Asio.h"

namespace zaffo::network {

/// libcurl's transfers on an Asio loop: waits for their sockets and for the next time limit, and
/// lets libcurl work when either comes. Thread: the loop's, save for making it.
class CurlMulti {
 public:
  using DoneHandler = std::function<void(CURL*, CURLcode)>;

  CurlMulti(asio::io_context& context, DoneHandler done);
  ~CurlMulti();
  CurlMulti(const CurlMulti&) = delete;
  CurlMulti& operator=(const CurlMulti&) = delete;

  /// Begins a transfer; the handler is told of its end, never inside this call.
  void add(CURL* easy);
  /// Ends one, whether it is done or not. Not to be called from a callback of libcurl.
  void remove(CURL* easy);

 private:
  class Socket;

  static int onSocket(CURL* easy, curl_socket_t number, int wanted, void* self, void* socket);
  static int onTimer(CURLM* multi, long milliseconds, void* self);
  void act(curl_socket_t number, int events);
  void setTimer(long milliseconds);
  void tellOfDone();

  asio::io_context& context_;
  const DoneHandler done_;
  asio::steady_timer timer_;
  std::map<curl_socket_t, std::shared_ptr<Socket>> sockets_;
  CURLM* multi_;
  const std::shared_ptr<int> life_ = std::make_shared<int>();
};

}  // namespace zaffo::network
