// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/Export.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// The one serial queue, "com.zaffoapp.media", on which media work done off the main thread
/// reports: every completion of the item loaders runs there. It lives until the process ends.
/// Thread: any.
class ZAFFO_EXPORT ZFMediaQueue {
 public:
  ZFMediaQueue(const ZFMediaQueue&) = delete;
  ZFMediaQueue& operator=(const ZFMediaQueue&) = delete;

  /// The queue; always the same one.
  [[nodiscard]] static const DispatchQueuePtr& queue();

  /// Marks code that is meant to run on the queue. Checks nothing and never fails.
  static void assertOnQueue();

 private:
  friend class ZFMediaQueueMarkTest;

  ZFMediaQueue();
  static ZFMediaQueue& sharedInstance();

  std::int64_t kQueueKey_ = 1;  // Its address is both the key and the value under it.
  DispatchQueuePtr kQueue_;
};

}  // namespace zaffo
