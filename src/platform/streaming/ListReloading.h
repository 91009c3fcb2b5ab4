// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/streaming/ListLoading.h"

namespace zaffo::streaming {

/// Has the list of a live stream brought anew, once each time it is asked to. Its end is the end of
/// its traffic. Thread: any; its state is its queue's.
class ListReloading : public std::enable_shared_from_this<ListReloading> {
 public:
  using Taker = std::function<void(Result<network::Playlist>)>;

  /// `taker` is called on a queue of its own.
  [[nodiscard]] static std::shared_ptr<ListReloading> make(network::URL address, Taker taker);
  ~ListReloading();

  /// Brings the list so many seconds after it was asked for last, unless it is on its way.
  void askAfter(double seconds);

 private:
  ListReloading(network::URL address, Taker taker);
  [[nodiscard]] std::function<void()> posting(void (ListReloading::*turn)());
  void ask();
  void step();

  const network::URL address_;
  const Taker taker_;
  const DispatchQueuePtr queue_;
  int64_t askedAt_;
  DispatchTimerPtr timer_;  // until it is asked for
  std::unique_ptr<ListLoading> loading_;
  std::unique_ptr<SmallBytes::Want> want_;
};

}  // namespace zaffo::streaming
