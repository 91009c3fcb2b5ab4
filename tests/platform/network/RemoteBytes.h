// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "doubles/FaultServer.h"
#include "platform/network/HttpResource.h"

namespace zaffo::network {

/// Options whose pauses are those of a test, which waits for them.
inline HttpOptions quickOptions() {
  using std::chrono::milliseconds;
  HttpOptions options;
  options.retries.firstPause = milliseconds(4);
  options.retries.longestPause = milliseconds(8);
  return options;
}

/// The same for a server that is to be given up on.
inline HttpOptions impatientOptions() {
  using std::chrono::milliseconds;
  HttpOptions options = quickOptions();
  options.limits = {milliseconds(2000), milliseconds(400), milliseconds(200), 1};
  return options;
}

/// A file as a good server has it.
inline FaultReply goodReply(std::string body, std::string entityTag = "\"one\"") {
  FaultReply reply;
  reply.body = std::move(body);
  reply.entityTag = std::move(entityTag);
  return reply;
}

/// Whether bytes are as they should be; they are not printed.
inline testing::AssertionResult areBytes(const std::string& bytes, const std::string& expected) {
  if (bytes == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << bytes.size() << " bytes where " << expected.size() << " others are expected";
}

/// Bytes in which no two places look alike.
inline std::string patternedBytes(std::size_t count) {
  std::string bytes(count, '\0');
  uint32_t state = 12345;
  for (char& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

/// Waits until bytes are there, or will not come.
inline void await(media::ByteSource& bytes, int64_t offset, int64_t count) {
  auto met = std::make_shared<std::promise<void>>();
  auto future = met->get_future();
  const auto want = bytes.want(offset, count, [met] { met->set_value(); });
  ASSERT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

/// What is held there, `count` bytes at most.
inline std::string held(HttpResource& resource, int64_t offset, int64_t count) {
  std::string bytes(static_cast<std::size_t>(count), '\0');
  std::size_t size = 0;
  while (size < bytes.size()) {
    const std::span<uint8_t> rest(reinterpret_cast<uint8_t*>(bytes.data()) + size,
                                  bytes.size() - size);
    const int64_t read = resource.readHeld(offset + static_cast<int64_t>(size), rest);
    if (read <= 0) break;
    size += static_cast<std::size_t>(read);
  }
  bytes.resize(size);
  return bytes;
}

/// Has bytes brought and reads them; fewer at the end or where reading fails.
inline std::string bring(HttpResource& resource, int64_t offset, int64_t count) {
  await(resource, offset, count);
  return held(resource, offset, count);
}

/// All of a resource of fewer than 100 MB, as much of it as came.
inline std::string bringAll(HttpResource& resource) {
  await(resource, 0, 100'000'000);
  return held(resource, 0, resource.size().value_or(1'000'000));
}

/// Waits until the server, which may be behind its client, has counted so many bytes of bodies.
inline int64_t bytesSentOnce(const FaultServer& server, int64_t bytes) {
  while (server.bytesSent() < bytes) std::this_thread::yield();
  return server.bytesSent();
}

/// The text of its error; empty when there is none.
inline std::string errorOf(const HttpResource& resource) {
  const auto error = resource.error();
  return error ? error->localizedDescription() : "";
}

}  // namespace zaffo::network
