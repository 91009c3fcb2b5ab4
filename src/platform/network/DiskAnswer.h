// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/network/NetworkLoop.h"

namespace zaffo::network {

/// Calls `ask` with a handler, which may be called on any thread, and `done` on the network's
/// thread, once, with what the handler was given, or with null when patience is over. Thread:
/// network.
template <typename Answer>
void awaitDisk(std::chrono::milliseconds patience,
               const std::function<void(std::function<void(Answer)>)>& ask,
               std::function<void(std::optional<Answer>)> done) {
  struct Waiting {
    explicit Waiting(std::function<void(std::optional<Answer>)> call)
        : done(std::move(call)), timer(NetworkLoop::shared().context()) {}
    void end(std::optional<Answer> answer) {
      timer.cancel();
      if (const auto call = std::exchange(done, nullptr)) call(std::move(answer));
    }
    std::function<void(std::optional<Answer>)> done;
    asio::steady_timer timer;
  };
  const auto waiting = std::make_shared<Waiting>(std::move(done));
  waiting->timer.expires_after(patience);
  waiting->timer.async_wait([waiting](const asio::error_code& error) {
    if (!error) waiting->end(std::nullopt);
  });
  ask([waiting](Answer answer) {
    NetworkLoop::shared().post(
        [waiting, given = std::make_shared<Answer>(std::move(answer))]() mutable {
          waiting->end(std::move(*given));
        });
  });
}

}  // namespace zaffo::network
