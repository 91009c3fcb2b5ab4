#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Tells, on the main thread, when one item has played to its end or failed on the way, for as long
/// as it lives. Thread: main.
class ItemEndObserver {
 public:
  ItemEndObserver(const std::shared_ptr<AVPlayerItem>& item, std::function<void()> ended,
                  std::function<void(std::string reason)> failed);

 private:
  /// What the notification centre holds weakly; its end is the end of the observation.
  std::shared_ptr<int> token_ = std::make_shared<int>(0);
};

}  // namespace zaffo::feed
