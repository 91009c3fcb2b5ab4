// SPDX-License-Identifier: Apache-2.0
#include "cell/ItemEndObserver.h"

#include <any>

namespace zaffo::feed {

namespace {

std::string reasonOf(const NSNotification& notification) {
  const auto told = notification.userInfo.find(AVPlayerItemFailedToPlayToEndTimeErrorKey);
  const auto* error =
      told == notification.userInfo.end() ? nullptr : std::any_cast<NSErrorPtr>(&told->second);
  return error && *error ? (*error)->localizedDescription() : "playback stopped before the end";
}

}  // namespace

ItemEndObserver::ItemEndObserver(const std::shared_ptr<AVPlayerItem>& item,
                                 std::function<void()> ended,
                                 std::function<void(std::string reason)> failed) {
  auto& center = NSNotificationCenter::defaultCenter();
  center.addObserver(token_, AVPlayerItemDidPlayToEndTimeNotification, item,
                     [ended = std::move(ended)](const NSNotification&) { ended(); });
  center.addObserver(token_, AVPlayerItemFailedToPlayToEndTimeNotification, item,
                     [failed = std::move(failed)](const NSNotification& notification) {
                       failed(reasonOf(notification));
                     });
}

}  // namespace zaffo::feed
