// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {

/// Counts the pictures of a layer that reached the screen. Thread: main; count() and
/// firstHostTime() any.
class PresentedPictures {
 public:
  /// `buffer`, null when there is none, was given to be drawn.
  void noteGiven(const CVPixelBufferPtr& buffer) {
    assertMainThread();
    given_ = buffer;
  }

  /// `buffer` was put on screen. A late report of any but the one given last does not count.
  void notePresented(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) {
    assertMainThread();
    if (!buffer || buffer != given_.lock() || buffer == presented_.lock()) return;
    presented_ = buffer;
    ++count_;
    if (firstHostTime_ == 0) firstHostTime_ = hostNanoseconds;
  }
  /// From now on something else is presented, whose first time is not known yet.
  void beginAnew() { firstHostTime_ = 0; }
  void forgetGiven() { given_.reset(); }

  [[nodiscard]] uint64_t count() const { return count_; }
  /// Host time (TimeSource, nanoseconds); 0 when nothing was presented yet.
  [[nodiscard]] int64_t firstHostTime() const { return firstHostTime_; }

 private:
  std::weak_ptr<const CVPixelBuffer> given_;
  std::weak_ptr<const CVPixelBuffer> presented_;
  std::atomic<uint64_t> count_{0};
  std::atomic<int64_t> firstHostTime_{0};
};

}  // namespace zaffo
