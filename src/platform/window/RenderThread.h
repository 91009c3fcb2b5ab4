// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <thread>

#include "platform/Mutex.h"
#include "platform/foundation/Result.h"
#include "platform/window/Canvas.h"

namespace zaffo::window {

/// The thread that draws. It makes its canvas, runs the tasks posted to it in order, sleeps while
/// there are none, and destroys the canvas where it was made. Thread: main, except where said.
class RenderThread {
 public:
  using MakeCanvas = std::function<Result<std::unique_ptr<Canvas>>()>;
  using Task = std::function<void(Canvas&)>;

  RenderThread() = default;
  /// Waits for the thread to end; call stop() first and destroy where waiting is allowed.
  ~RenderThread();
  RenderThread(const RenderThread&) = delete;
  RenderThread& operator=(const RenderThread&) = delete;

  /// Starts the thread and waits until `makeCanvas` returned on it. Returns what failed, or null;
  /// after a failure the thread has ended. To be called once.
  [[nodiscard]] NSErrorPtr start(MakeCanvas makeCanvas);

  /// Runs `task` on the thread later. Dropped after stop().
  void post(Task task) ZAFFO_EXCLUDES(tasksMutex_);

  /// Drops the tasks not yet begun and lets the thread end; does not wait. Idempotent.
  void stop() ZAFFO_EXCLUDES(tasksMutex_);

 private:
  void runTasks(Canvas& canvas) ZAFFO_EXCLUDES(tasksMutex_);
  [[nodiscard]] Task nextTask() ZAFFO_EXCLUDES(tasksMutex_);

  Mutex tasksMutex_;
  std::condition_variable_any tasksChanged_;
  std::deque<Task> tasks_ ZAFFO_GUARDED_BY(tasksMutex_);
  bool stopped_ ZAFFO_GUARDED_BY(tasksMutex_) = false;
  std::thread thread_;
};

}  // namespace zaffo::window
