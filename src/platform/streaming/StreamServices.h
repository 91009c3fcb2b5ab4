// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>

#include "platform/network/SharedResources.h"

namespace zaffo::streaming {

/// What a stream has of the network.
struct StreamServices {
  network::SharedResources* resources = nullptr;         ///< outlives the stream
  std::function<std::optional<double>()> bitsPerSecond;  ///< as measured; called on any thread

  /// The process's.
  [[nodiscard]] static StreamServices shared() {
    return {&network::SharedResources::shared(),
            [] { return network::HttpClient::shared().bitsPerSecond(); }};
  }
};

}  // namespace zaffo::streaming
