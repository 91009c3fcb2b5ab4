// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zaffo {

/// What a FaultServer does with one request. As it stands it serves `body` as a good server does:
/// with its length, in whole or in ranges, on a connection that is kept.
struct FaultReply {
  static constexpr std::size_t kNever = SIZE_MAX;

  int status = 200;
  std::vector<std::pair<std::string, std::string>> fields;
  std::string body;
  std::string entityTag;  ///< also what an If-Range and an If-None-Match are compared with

  bool servesRanges = true;
  bool isChunked = false;
  bool hasNoLength = false;  ///< the end of the connection is the end of the body
  bool isVersion10 = false;
  bool hasEndlessHead = false;              ///< 4 MiB of it
  std::optional<int64_t> claimedLength;     ///< in place of the true one
  std::optional<std::string> claimedRange;  ///< a Content-Range in place of the true one

  std::chrono::milliseconds headDelay{0};
  std::size_t pieceSize = kNever;           ///< of the body, sent at once
  std::chrono::milliseconds pieceDelay{0};  ///< before each piece but the first
  std::size_t closesAfter = kNever;         ///< so many bytes of what it sends of the body
  std::size_t stallsAfter = kNever;         ///< likewise, with the connection open
};

/// A server on loopback with scripted faults, on a thread of its own. Thread: any.
class FaultServer {
 public:
  struct Request {
    std::string path;
    std::string head;  ///< all of it

    /// The value of a field, by its name as it is written; empty when it is not there.
    [[nodiscard]] std::string field(const std::string& name) const;
  };

  FaultServer();
  ~FaultServer();
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  /// The next requests for the path are answered in this order, all further ones as the last.
  void on(const std::string& path, std::vector<FaultReply> replies);

  [[nodiscard]] std::string address(const std::string& path) const;
  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] int connections() const;
  /// Bytes of bodies that were handed to the system.
  [[nodiscard]] int64_t bytesSent() const;
  /// Waits until a connection ended by the client's doing; false after ten seconds.
  [[nodiscard]] bool waitForLeaver() const;
  /// Waits until so many requests have come; false after ten seconds.
  [[nodiscard]] bool waitForRequests(std::size_t count) const;

 private:
  class Connection;
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace zaffo
