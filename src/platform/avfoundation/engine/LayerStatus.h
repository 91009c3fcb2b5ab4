// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"

namespace zaffo {

/// The status of a display layer as its observers know it. Each change is told once, one after the
/// other, and the first no earlier than a whole turn of the main queue after the layer's first
/// sample: a client that makes a layer, enqueues samples and adds its observer in the next block of
/// the main queue misses nothing, however soon the layer fails. Thread: any.
class LayerStatus : public std::enable_shared_from_this<LayerStatus> {
 public:
  using Status = AVQueuedSampleBufferRenderingStatus;

  /// Over what `present` gives, which is called on any thread and may call nothing of this.
  [[nodiscard]] static std::shared_ptr<LayerStatus> create(std::function<Status()> present) {
    return std::shared_ptr<LayerStatus>(new LayerStatus(std::move(present)));
  }

  /// What was told last, or is being told; Unknown at first.
  [[nodiscard]] Status told() const { return told_.get(); }
  /// Calls `changed` after each change of told(), on the thread of the change or of the one before
  /// it, or on the main thread, until the observation ends.
  [[nodiscard]] KeyValueObservation observe(std::function<void()> changed);

  /// A sample is about to come.
  void noteSample();
  /// What `present` gives may have changed.
  void noteChange();

 private:
  explicit LayerStatus(std::function<Status()> present) : present_(std::move(present)) {}
  void open();
  void tell();
  [[nodiscard]] std::optional<Status> takeNext();

  const std::function<Status()> present_;
  ObservableProperty<Status> told_{Status::Unknown};
  Mutex changesMutex_;
  std::deque<Status> untold_ ZAFFO_GUARDED_BY(changesMutex_);
  Status latest_ ZAFFO_GUARDED_BY(changesMutex_) = Status::Unknown;
  bool hadSample_ ZAFFO_GUARDED_BY(changesMutex_) = false;
  bool isOpen_ ZAFFO_GUARDED_BY(changesMutex_) = false;
  bool isTelling_ ZAFFO_GUARDED_BY(changesMutex_) = false;
};

}  // namespace zaffo
