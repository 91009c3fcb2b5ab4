// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/foundation/Result.h"
#include "platform/media/Outcome.h"
#include "platform/network/Playlist.h"
#include "platform/streaming/SmallBytes.h"

namespace zaffo::streaming {

/// A playlist on its way. Never waits. Thread: one at a time.
class ListLoading {
 public:
  explicit ListLoading(std::shared_ptr<network::HttpResource> resource);

  /// Ready or Error when it has come to its end: see take().
  [[nodiscard]] media::Outcome step();
  [[nodiscard]] std::unique_ptr<SmallBytes::Want> want(std::function<void()> handler) {
    return text_.want(std::move(handler));
  }
  /// The list, or why there is none.
  [[nodiscard]] Result<network::Playlist> take();

 private:
  SmallBytes text_;
};

}  // namespace zaffo::streaming
