// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "companion/AVPlayerItemLoader.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// What a loader gave: the item, null when loading failed, and its lengths in seconds.
struct ItemAnswer {
  std::shared_ptr<AVPlayerItem> item;
  double loopSeconds = 0;
  double seconds = 0;
};

/// A completion for a loader that passes its answer on to `answered`, in a block of the main queue
/// and once: nothing when the loader let go of the completion uncalled, as one does that can make
/// no loop of a clip. Thread: any.
inline AVPlayerItemLoader::ItemCompletion answeringOnMainQueue(
    std::function<void(const std::optional<ItemAnswer>&)> answered) {
  /// Tells of the silence when it goes without having been called.
  struct Once {
    std::function<void(const std::optional<ItemAnswer>&)> answered;

    explicit Once(std::function<void(const std::optional<ItemAnswer>&)> handler)
        : answered(std::move(handler)) {}
    ~Once() { answer(std::nullopt); }
    Once(const Once&) = delete;
    Once& operator=(const Once&) = delete;

    void answer(std::optional<ItemAnswer> what) {
      if (!answered) return;
      dispatch_async(dispatch_get_main_queue(), [handler = std::exchange(answered, nullptr),
                                                 what = std::move(what)] { handler(what); });
    }
  };
  return [once = std::make_shared<Once>(std::move(answered))](std::shared_ptr<AVPlayerItem> item,
                                                              double loopSeconds, double seconds) {
    once->answer(ItemAnswer{std::move(item), loopSeconds, seconds});
  };
}

}  // namespace zaffo
