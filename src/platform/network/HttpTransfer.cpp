// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpTransfer.h"

#include <new>
#include <utility>

#include "platform/network/NetworkError.h"

#ifndef ZAFFO_VERSION_STRING
#error "the build names the version"
#endif

namespace zaffo::network {

namespace {

void append(CurlListPtr& list, const std::string& line) {
  curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
  if (!longer) throw std::bad_alloc();
  static_cast<void>(list.release());
  list.reset(longer);
}

bool isWithoutBreaks(const std::string& text) {
  return text.find_first_of(std::string("\r\n\0", 3)) == std::string::npos;
}

}  // namespace

HttpTransfer::HttpTransfer(asio::io_context& context, HttpRequest request, HttpListener& listener,
                           TransferMeter& meter)
    : request_(std::move(request)),
      listener_(&listener),
      meter_(meter),
      easy_(curl_easy_init()),
      timer_(context) {
  if (!easy_) throw std::bad_alloc();
}

HttpTransfer::~HttpTransfer() {
  enter(Phase::Ended);
}

void HttpTransfer::setUp(const TrustedAuthorities& authorities) {
  CURL* const easy = easy_.get();
  setUpAddress();
  setUpSecurity(authorities);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 1L);
  curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, 64L * 1024);
  curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
  // A second request waits for the first one's connection where that can take both. Without TLS it
  // cannot, and libcurl would find out only when the first is over.
  const bool isSecure = request_.address->scheme() == "https";
  curl_easy_setopt(easy, CURLOPT_PIPEWAIT, isSecure ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                   static_cast<long>(request_.limits.connect.count()));
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &HttpTransfer::onAsk);
  curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &HttpTransfer::onLine);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &HttpTransfer::onBytes);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
}

void HttpTransfer::setUpAddress() {
  CURL* const easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_URL, request_.address->absoluteString().c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  curl_easy_setopt(easy, CURLOPT_USERAGENT, "ZaffoPlayback/" ZAFFO_VERSION_STRING);
  append(fields_, "Accept-Encoding: identity");
  for (const auto& [name, value] : request_.fields) {
    // A line break would let a value pass for other fields.
    if (isWithoutBreaks(name) && isWithoutBreaks(value)) append(fields_, name + ": " + value);
  }
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, fields_.get());
}

void HttpTransfer::setUpSecurity(const TrustedAuthorities& authorities) {
  CURL* const easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  if (!authorities.file.empty()) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, authorities.file.c_str());
  }
  if (!authorities.folder.empty()) {
    curl_easy_setopt(easy, CURLOPT_CAPATH, authorities.folder.c_str());
  }
}

void HttpTransfer::finish(CURLcode code) {
  enter(Phase::Ended);
  CurlFailure failure = failure_;
  if (!failure.error && code != CURLE_OK) failure = curlFailure(code, request_.address->host());
  HttpListener* const listener = std::exchange(listener_, nullptr);
  if (listener) listener->didEnd(failure.error, failure.mayPass);
}

void HttpTransfer::silence() {
  listener_ = nullptr;
  enter(Phase::Ended);
}

void HttpTransfer::resume() {
  if (phase_ != Phase::Paused) return;
  enter(Phase::Receiving);
  curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
}

int HttpTransfer::onAsk(void* self, char* /*there*/, char* /*here*/, int /*port*/, int /*port*/) {
  static_cast<HttpTransfer*>(self)->enter(Phase::Waiting);
  return CURL_PREREQFUNC_OK;
}

std::size_t HttpTransfer::onLine(char* data, std::size_t size, std::size_t count, void* self) {
  return static_cast<HttpTransfer*>(self)->takeLine({data, size * count}) ? size * count : 0;
}

std::size_t HttpTransfer::onBytes(char* data, std::size_t size, std::size_t count, void* self) {
  return static_cast<HttpTransfer*>(self)->takeBytes(
      {reinterpret_cast<const uint8_t*>(data), size * count});
}

/// One line of a head, or of what may follow a body. False ends the transfer.
bool HttpTransfer::takeLine(std::string_view line) {
  constexpr int kFinal = 200;
  if (!listener_) return false;
  headSize_ += line.size();
  if (headSize_ > kLongestHead) {
    fail(networkError(NSURLErrorBadServerResponse, server() + " sent a head without an end."),
         false);
    return false;
  }
  if (phase_ == Phase::Receiving || phase_ == Phase::Paused) return true;
  head_.addLine(line);
  if (line != "\r\n" && line != "\n") return true;
  if (head_.status() < kFinal) return true;
  enter(Phase::Receiving);
  listener_->didReceiveHead(head_);
  return listener_ != nullptr;
}

std::size_t HttpTransfer::takeBytes(std::span<const uint8_t> bytes) {
  if (!listener_) return 0;
  if (phase_ == Phase::Paused) return CURL_WRITEFUNC_PAUSE;
  if (!listener_->didReceiveBytes(bytes)) {
    if (!listener_) return 0;
    enter(Phase::Paused);
    return CURL_WRITEFUNC_PAUSE;
  }
  meter_.didReceive(static_cast<int64_t>(bytes.size()));
  bytesInWindow_ += static_cast<int64_t>(bytes.size());
  return listener_ ? bytes.size() : 0;
}

void HttpTransfer::enter(Phase phase) {
  const Phase former = std::exchange(phase_, phase);
  if (former == phase || former == Phase::Ended) {
    phase_ = former;
    return;
  }
  if (former == Phase::Receiving) meter_.didStopReceiving();
  timer_.cancel();
  if (phase == Phase::Waiting) startTimer(request_.limits.firstByte);
  if (phase != Phase::Receiving) return;
  meter_.didBeginToReceive();
  bytesInWindow_ = 0;
  startTimer(request_.limits.stall);
}

void HttpTransfer::startTimer(std::chrono::milliseconds limit) {
  timer_.expires_after(limit);
  const auto phase = phase_;
  timer_.async_wait([weak = weak_from_this(), phase](const asio::error_code& error) {
    const auto self = weak.lock();
    if (!error && self && self->phase_ == phase) self->limitPassed();
  });
}

void HttpTransfer::limitPassed() {
  const bool isMoving = phase_ == Phase::Receiving && bytesInWindow_ >= request_.limits.leastBytes;
  if (isMoving) {
    bytesInWindow_ = 0;
    startTimer(request_.limits.stall);
    return;
  }
  const bool isWaiting = phase_ == Phase::Waiting;
  fail(networkError(NSURLErrorTimedOut,
                    server() + (isWaiting ? " did not answer in time." : " stopped sending.")),
       true);
  abandon_(easy_.get());
  finish(CURLE_OPERATION_TIMEDOUT);
}

void HttpTransfer::fail(NSErrorPtr error, bool mayPass) {
  failure_ = {std::move(error), mayPass};
}

std::string HttpTransfer::server() const {
  return "The server \"" + request_.address->host() + "\"";
}

}  // namespace zaffo::network
