// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Reports, on the main thread and for as long as it lives, when one item has played to its end or
/// failed before it. Thread: main.
class ItemEndObserver {
 public:
  ItemEndObserver(const std::shared_ptr<AVPlayerItem>& item, std::function<void()> ended,
                  std::function<void(std::string reason)> failed);

 private:
  /// Held weakly by the notification centre; the observation ends with it.
  std::shared_ptr<int> token_ = std::make_shared<int>(0);
};

}  // namespace zaffo::feed
