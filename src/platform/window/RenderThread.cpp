// SPDX-License-Identifier: Apache-2.0
#include "platform/window/RenderThread.h"

#include <future>
#include <utility>

#include "platform/Thread.h"
#include "platform/ThreadPriority.h"

namespace zaffo::window {

RenderThread::~RenderThread() {
  stop();
  if (thread_.joinable()) thread_.join();
}

NSErrorPtr RenderThread::start(MakeCanvas makeCanvas) {
  std::promise<NSErrorPtr> made;
  auto outcome = made.get_future();
  thread_ = startThread("zaffo-draw",
                        [this, make = std::move(makeCanvas), made = std::move(made)]() mutable {
                          lowerThreadPriority();
                          const auto canvas = make();
                          made.set_value(canvas.error());
                          if (canvas) runTasks(**canvas);
                        });
  return outcome.get();
}

void RenderThread::post(Task task) {
  const MutexLock lock(tasksMutex_);
  if (stopped_) return;
  tasks_.push_back(std::move(task));
  tasksChanged_.notify_one();
}

void RenderThread::stop() {
  std::deque<Task> dropped;  // what tasks hold is let go without the lock
  const MutexLock lock(tasksMutex_);
  stopped_ = true;
  dropped.swap(tasks_);
  tasksChanged_.notify_one();
}

void RenderThread::runTasks(Canvas& canvas) {
  while (const Task task = nextTask()) task(canvas);
}

RenderThread::Task RenderThread::nextTask() {
  const MutexLock lock(tasksMutex_);
  while (tasks_.empty() && !stopped_) tasksChanged_.wait(tasksMutex_);
  if (stopped_) return {};
  Task task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

}  // namespace zaffo::window
