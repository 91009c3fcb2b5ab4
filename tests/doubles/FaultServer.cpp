// SPDX-License-Identifier: Apache-2.0
#include "doubles/FaultServer.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "platform/dispatch/Asio.h"

#include <asio/buffer.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>

namespace zaffo {

namespace {

using asio::ip::tcp;
constexpr std::chrono::seconds kPatience{10};

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

/// A piece of what is sent, and how long to wait before it.
struct Piece {
  std::string bytes;
  std::chrono::milliseconds delay{0};
  std::size_t ofBody = 0;
};

enum class Ending { KeepOpen, Close, Stall };

/// All that one request is answered with.
struct Answer {
  std::deque<Piece> pieces;
  Ending ending = Ending::KeepOpen;
};

struct Range {
  std::size_t first, last;
};

std::optional<Range> rangeOf(const FaultServer::Request& request, const FaultReply& reply) {
  const std::string text = request.field("Range");
  const std::string condition = request.field("If-Range");
  if (!reply.servesRanges || !text.starts_with("bytes=")) return std::nullopt;
  if (!condition.empty() && condition != reply.entityTag) return std::nullopt;
  const auto dash = text.find('-');
  Range range{std::stoul(text.substr(6, dash - 6)), reply.body.size() - 1};
  if (dash + 1 < text.size()) range.last = std::min(range.last, std::stoul(text.substr(dash + 1)));
  return range;
}

/// Makes an answer of a reply, step by step.
class AnswerMaker {
 public:
  AnswerMaker(const FaultServer::Request& request, const FaultReply& reply)
      : reply_(reply), status_(reply.status), body_(reply.body) {
    if (status_ == 200 && isKnownTo(request)) {
      status_ = 304;
      body_.clear();
    } else if (status_ == 200) {
      takeRange(request);
    }
  }

  Answer make() {
    answer_.pieces.push_back({head(), reply_.headDelay});
    if (reply_.hasEndlessHead) return endlessHead();
    const std::size_t limit = std::min(reply_.closesAfter, reply_.stallsAfter);
    const bool isCut = limit <= body_.size();
    addPieces(body_.substr(0, limit));
    if (!isCut && reply_.isChunked) answer_.pieces.push_back({"0\r\n\r\n"});
    if (reply_.hasNoLength || reply_.isVersion10) answer_.ending = Ending::Close;
    if (isCut) answer_.ending = limit == reply_.closesAfter ? Ending::Close : Ending::Stall;
    return std::move(answer_);
  }

 private:
  bool isKnownTo(const FaultServer::Request& request) const {
    return !reply_.entityTag.empty() && request.field("If-None-Match") == reply_.entityTag;
  }

  void takeRange(const FaultServer::Request& request) {
    const auto range = rangeOf(request, reply_);
    if (!range) return;
    const std::string all = std::to_string(body_.size());
    if (range->first >= body_.size()) {
      status_ = 416;
      range_ = "bytes */" + all;
      body_.clear();
      return;
    }
    status_ = 206;
    range_ =
        "bytes " + std::to_string(range->first) + "-" + std::to_string(range->last) + "/" + all;
    body_ = body_.substr(range->first, range->last - range->first + 1);
  }

  std::string head() const {
    std::string text = std::string("HTTP/1.") + (reply_.isVersion10 ? "0 " : "1 ") +
                       std::to_string(status_) + " As scripted\r\n";
    const auto add = [&](const std::string& name, const std::string& value) {
      text += name + ": " + value + "\r\n";
    };
    if (reply_.isChunked) {
      add("Transfer-Encoding", "chunked");
    } else if (!reply_.hasNoLength) {
      const auto length = static_cast<int64_t>(body_.size());
      add("Content-Length", std::to_string(reply_.claimedLength.value_or(length)));
    }
    const std::string range = reply_.claimedRange.value_or(range_);
    if (!range.empty() && status_ != 200) add("Content-Range", range);
    if (!reply_.entityTag.empty()) add("ETag", reply_.entityTag);
    for (const auto& [name, value] : reply_.fields) add(name, value);
    return reply_.hasEndlessHead ? text : text + "\r\n";
  }

  Answer endlessHead() {
    constexpr int kLines = 4096;
    const std::string line = "X-More: " + std::string(1014, 'x') + "\r\n";
    for (int i = 0; i < kLines; ++i) answer_.pieces.push_back({line});
    answer_.ending = Ending::Close;
    return std::move(answer_);
  }

  void addPieces(const std::string& body) {
    const std::size_t size = std::min(reply_.pieceSize, std::max<std::size_t>(body.size(), 1));
    for (std::size_t at = 0; at < body.size(); at += size) {
      std::string piece = body.substr(at, size);
      const std::size_t count = piece.size();
      if (reply_.isChunked) {
        char length[32];
        std::snprintf(length, sizeof length, "%zx\r\n", count);
        piece = length + piece + "\r\n";
      }
      answer_.pieces.push_back({std::move(piece), at > 0 ? reply_.pieceDelay : kNoDelay, count});
    }
  }

  static constexpr std::chrono::milliseconds kNoDelay{0};

  const FaultReply& reply_;
  int status_;
  std::string body_, range_;
  Answer answer_;
};

}  // namespace

std::string FaultServer::Request::field(const std::string& name) const {
  const auto at = lower(head).find("\r\n" + lower(name) + ": ");
  if (at == std::string::npos) return {};
  const auto begin = at + 2 + name.size() + 2;
  return head.substr(begin, head.find("\r\n", begin) - begin);
}

struct FaultServer::State {
  asio::io_context context{1};
  tcp::acceptor acceptor{context, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  std::thread thread;

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::map<std::string, std::deque<FaultReply>> replies;
  std::vector<Request> requests;
  int connections = 0;
  int leavers = 0;
  int64_t bytesSent = 0;

  FaultReply take(const Request& request) {
    const std::lock_guard lock(mutex);
    requests.push_back(request);
    changed.notify_all();
    auto& left = replies[request.path];
    FaultReply reply;
    if (left.empty()) {
      reply.status = 404;
      return reply;
    }
    reply = left.front();
    if (left.size() > 1) left.pop_front();
    return reply;
  }
  void noteSent(std::size_t bytes) {
    const std::lock_guard lock(mutex);
    bytesSent += static_cast<int64_t>(bytes);
  }
  void noteLeaver() {
    const std::lock_guard lock(mutex);
    ++leavers;
    changed.notify_all();
  }
  void accept();
};

class FaultServer::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(State& state, tcp::socket socket)
      : state_(state), socket_(std::move(socket)), timer_(state_.context) {}

  void read() {
    asio::async_read_until(
        socket_, asio::dynamic_buffer(input_), "\r\n\r\n",
        [self = shared_from_this()](const asio::error_code& error, std::size_t size) {
          if (error) return self->state_.noteLeaver();
          self->answer(size);
        });
  }

 private:
  void answer(std::size_t size) {
    Request request;
    request.head = input_.substr(0, size);
    input_.erase(0, size);
    const auto path = request.head.find(' ') + 1;
    request.path = request.head.substr(path, request.head.find(' ', path) - path);
    const FaultReply reply = state_.take(request);
    answer_ = AnswerMaker(request, reply).make();
    sendNext();
  }

  void sendNext() {
    if (answer_.pieces.empty()) return end();
    if (answer_.pieces.front().delay.count() == 0) return send();
    timer_.expires_after(answer_.pieces.front().delay);
    timer_.async_wait([self = shared_from_this()](const asio::error_code&) { self->send(); });
  }

  void send() {
    sent_ = std::move(answer_.pieces.front());
    answer_.pieces.pop_front();
    asio::async_write(socket_, asio::buffer(sent_.bytes),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                        if (error) return self->state_.noteLeaver();
                        self->state_.noteSent(self->sent_.ofBody);
                        self->sendNext();
                      });
  }

  void end() {
    // One that stalls reads on, to see its client leave.
    if (answer_.ending != Ending::Close) return read();
    asio::error_code ignored;
    socket_.shutdown(tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
  }

  State& state_;
  tcp::socket socket_;
  asio::steady_timer timer_;
  std::string input_;
  Answer answer_;
  Piece sent_;
};

void FaultServer::State::accept() {
  acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
    if (error) return;
    {
      const std::lock_guard lock(mutex);
      ++connections;
    }
    socket.set_option(tcp::no_delay(true));
    std::make_shared<Connection>(*this, std::move(socket))->read();
    accept();
  });
}

FaultServer::FaultServer() : state_(std::make_unique<State>()) {
  state_->accept();
  state_->thread = std::thread([state = state_.get()] { state->context.run(); });
}

FaultServer::~FaultServer() {
  state_->context.stop();
  state_->thread.join();
}

void FaultServer::on(const std::string& path, std::vector<FaultReply> replies) {
  const std::lock_guard lock(state_->mutex);
  state_->replies[path] = {replies.begin(), replies.end()};
}

std::string FaultServer::address(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(state_->acceptor.local_endpoint().port()) + path;
}

std::vector<FaultServer::Request> FaultServer::requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

int FaultServer::connections() const {
  const std::lock_guard lock(state_->mutex);
  return state_->connections;
}

int64_t FaultServer::bytesSent() const {
  const std::lock_guard lock(state_->mutex);
  return state_->bytesSent;
}

bool FaultServer::waitForLeaver() const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, kPatience, [this] { return state_->leavers > 0; });
}

bool FaultServer::waitForRequests(std::size_t count) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, kPatience,
                                  [&] { return state_->requests.size() >= count; });
}

}  // namespace zaffo
