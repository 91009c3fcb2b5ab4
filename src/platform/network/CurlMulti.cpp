// SPDX-License-Identifier: Apache-2.0
#include "platform/network/CurlMulti.h"

#include <chrono>
#include <new>
#include <utility>

namespace zaffo::network {

/// One of libcurl's sockets, for as long as libcurl wants to be told of it.
class CurlMulti::Socket : public std::enable_shared_from_this<Socket> {
 public:
  Socket(CurlMulti& owner, curl_socket_t number)
      : owner_(&owner), number_(number), descriptor_(owner.context_, number) {}
  ~Socket() { descriptor_.release(); }

  void want(int wanted) {
    wanted_ = wanted;
    arm();
  }
  /// libcurl is about to close it, and its number may come again.
  void leave() {
    owner_ = nullptr;
    descriptor_.release();
  }

 private:
  using Descriptor = asio::posix::stream_descriptor;

  void arm() {
    if (wanted_ & CURL_POLL_IN && !waitsToRead_) {
      waitsToRead_ = true;
      wait(Descriptor::wait_read, waitsToRead_, CURL_POLL_IN, CURL_CSELECT_IN);
    }
    if (wanted_ & CURL_POLL_OUT && !waitsToWrite_) {
      waitsToWrite_ = true;
      wait(Descriptor::wait_write, waitsToWrite_, CURL_POLL_OUT, CURL_CSELECT_OUT);
    }
  }

  void wait(Descriptor::wait_type type, bool& waits, int poll, int events) {
    const auto ready = [weak = weak_from_this(), &waits, poll,
                        events](const asio::error_code& error) {
      const auto self = weak.lock();
      if (!self || !self->owner_ || error == asio::error::operation_aborted) return;
      waits = false;
      if (!(self->wanted_ & poll)) return;
      self->owner_->act(self->number_, error ? CURL_CSELECT_ERR : events);
      if (self->owner_) self->arm();
    };
    descriptor_.async_wait(type, ready);
  }

  CurlMulti* owner_;
  const curl_socket_t number_;
  Descriptor descriptor_;
  int wanted_ = 0;
  bool waitsToRead_ = false, waitsToWrite_ = false;
};

CurlMulti::CurlMulti(asio::io_context& context, DoneHandler done)
    : context_(context), done_(std::move(done)), timer_(context), multi_(curl_multi_init()) {
  if (!multi_) throw std::bad_alloc();
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlMulti::onSocket);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlMulti::onTimer);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

CurlMulti::~CurlMulti() {
  curl_multi_cleanup(multi_);
  for (const auto& [number, socket] : sockets_) socket->leave();
}

void CurlMulti::add(CURL* easy) {
  curl_multi_add_handle(multi_, easy);
}

void CurlMulti::remove(CURL* easy) {
  curl_multi_remove_handle(multi_, easy);
}

int CurlMulti::onSocket(CURL* /*easy*/, curl_socket_t number, int wanted, void* self,
                        void* /*socket*/) {
  auto& multi = *static_cast<CurlMulti*>(self);
  auto& socket = multi.sockets_[number];
  if (wanted == CURL_POLL_REMOVE) {
    if (socket) socket->leave();
    multi.sockets_.erase(number);
    return 0;
  }
  if (!socket) socket = std::make_shared<Socket>(multi, number);
  socket->want(wanted);
  return 0;
}

int CurlMulti::onTimer(CURLM* /*multi*/, long milliseconds, void* self) {
  static_cast<CurlMulti*>(self)->setTimer(milliseconds);
  return 0;
}

void CurlMulti::setTimer(long milliseconds) {
  timer_.cancel();
  if (milliseconds < 0) return;
  timer_.expires_after(std::chrono::milliseconds(milliseconds));
  // One that has rung is past cancelling, and may find the transfers gone.
  timer_.async_wait([this, life = std::weak_ptr(life_)](const asio::error_code& error) {
    if (!error && !life.expired()) act(CURL_SOCKET_TIMEOUT, 0);
  });
}

void CurlMulti::act(curl_socket_t number, int events) {
  int running = 0;
  curl_multi_socket_action(multi_, number, events, &running);
  tellOfDone();
}

void CurlMulti::tellOfDone() {
  int waiting = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_, &waiting)) {
    if (message->msg == CURLMSG_DONE) done_(message->easy_handle, message->data.result);
  }
}

}  // namespace zaffo::network
