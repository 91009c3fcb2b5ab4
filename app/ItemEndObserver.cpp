#include "ItemEndObserver.h"

namespace zaffo::feed {

namespace {

std::string reasonOf(const std::weak_ptr<AVPlayerItem>& weakItem) {
  const auto item = weakItem.lock();
  const auto error = item ? item->error() : nullptr;
  return error ? error->localizedDescription() : "playback stopped before the end";
}

}  // namespace

ItemEndObserver::ItemEndObserver(const std::shared_ptr<AVPlayerItem>& item,
                                 std::function<void()> ended,
                                 std::function<void(std::string reason)> failed) {
  auto& center = NSNotificationCenter::defaultCenter();
  center.addObserver(token_, AVPlayerItemDidPlayToEndTimeNotification, item,
                     [ended = std::move(ended)](const NSNotification&) { ended(); });
  center.addObserver(token_, AVPlayerItemFailedToPlayToEndTimeNotification, item,
                     [failed = std::move(failed), weakItem = std::weak_ptr<AVPlayerItem>(item)](
                         const NSNotification&) { failed(reasonOf(weakItem)); });
}

}  // namespace zaffo::feed
