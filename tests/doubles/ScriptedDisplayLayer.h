// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"

namespace zaffo {

/// A display layer that shows nothing, asks for samples when a test says, and has the status that a
/// test gives it. Writes what it is told on standard output, among the lines of whoever uses it.
class ScriptedDisplayLayer final : public AVSampleBufferDisplayLayer {
 public:
  using Status = AVQueuedSampleBufferRenderingStatus;

  /// How many more samples it takes while it asks for some.
  std::atomic<int> room{1000};
  /// Whether it calls for samples as soon as it is asked to; else only on ask().
  bool asksAtOnce = true;
  std::vector<std::shared_ptr<CMSampleBuffer>> samples;  ///< all that were enqueued
  NSErrorPtr errorValue;
  std::function<void()> onEnqueue;
  std::function<void()> onRequest;

  /// Calls for samples, as a layer does that has room again; only while a request is pending.
  void ask() {
    const auto request = pending();
    if (!request) return;
    request->queue->async([request] {
      if (!request->stopped) request->block();
    });
  }
  [[nodiscard]] bool isAsking() const { return pending() != nullptr; }
  /// What was last asked to be called for samples, and where, even when the request has ended.
  [[nodiscard]] DispatchQueuePtr queue() const { return last()->queue; }
  [[nodiscard]] std::function<void()> lastBlock() const { return last()->block; }

  /// Changes the status, and tells so, on the calling thread.
  void changeStatus(Status status, NSErrorPtr error = nullptr) {
    errorValue = std::move(error);
    status_.set(status);
  }

  [[nodiscard]] std::shared_ptr<CMTimebase> controlTimebase() const override { return timebase_; }
  void setControlTimebase(std::shared_ptr<CMTimebase> timebase) override {
    std::printf("layer timebase\n");
    timebase_ = std::move(timebase);
  }
  [[nodiscard]] AVLayerVideoGravity videoGravity() const override {
    return AVLayerVideoGravityResizeAspect;
  }
  void setVideoGravity(AVLayerVideoGravity) override { std::printf("layer gravity\n"); }
  void setPreferredTransform(CGAffineTransform) override { std::printf("layer transform\n"); }

  void enqueueSampleBuffer(std::shared_ptr<CMSampleBuffer> sample) override {
    std::printf("layer enqueue\n");
    samples.push_back(std::move(sample));
    --room;
    if (onEnqueue) onEnqueue();
  }
  void flush() override { std::printf("layer flush\n"); }
  void flushAndRemoveImage() override { std::printf("layer flush and remove image\n"); }
  [[nodiscard]] bool isReadyForMoreMediaData() const override { return room > 0; }
  void requestMediaDataWhenReadyOnQueue(DispatchQueuePtr queue,
                                        std::function<void()> block) override {
    std::printf("layer request\n");
    auto request = std::make_shared<Request>();
    request->queue = std::move(queue);
    request->block = std::move(block);
    {
      const std::lock_guard lock(requestMutex_);
      last_ = pending_ = std::move(request);
    }
    if (onRequest) onRequest();
    if (asksAtOnce) ask();
  }
  /// On any thread, as a session's seek and failure do.
  void stopRequestingMediaData() override {
    std::printf("layer stop requesting\n");
    const std::lock_guard lock(requestMutex_);
    if (pending_) pending_->stopped = true;
    pending_ = nullptr;
  }

  void expectMediaData() override { std::printf("layer expects\n"); }

  [[nodiscard]] Status status() const override { return status_.get(); }
  [[nodiscard]] NSErrorPtr error() const override { return errorValue; }
  [[nodiscard]] KeyValueObservation observeStatus(std::function<void()> changed) override {
    std::printf("layer observe status\n");
    auto observation = std::make_shared<KeyValueObservation>(
        status_.observe([changed](Status, Status) { changed(); }));
    return KeyValueObservation([observation] {
      std::printf("layer observe status no more\n");
      observation->invalidate();
    });
  }
  [[nodiscard]] bool isReadyForDisplay() const override { return !samples.empty(); }
  [[nodiscard]] uint64_t presentedFrames() const override { return 0; }
  [[nodiscard]] uint64_t droppedFrames() const override { return 0; }
  [[nodiscard]] int64_t firstPresentedHostTime() const override { return 0; }

 private:
  struct Request {
    DispatchQueuePtr queue;
    std::function<void()> block;
    std::atomic<bool> stopped{false};
  };
  [[nodiscard]] std::shared_ptr<Request> pending() const {
    const std::lock_guard lock(requestMutex_);
    return pending_;
  }
  [[nodiscard]] std::shared_ptr<Request> last() const {
    const std::lock_guard lock(requestMutex_);
    return last_;
  }

  std::shared_ptr<CMTimebase> timebase_;
  mutable std::mutex requestMutex_;
  std::shared_ptr<Request> pending_, last_;
  ObservableProperty<Status> status_{Status::Unknown};
};

}  // namespace zaffo
