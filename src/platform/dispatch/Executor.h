#pragma once

#include <memory>

namespace zaffo {

/// Something a worker runs once per time it is handed to an Executor.
class Runnable {
 public:
  virtual ~Runnable() = default;
  virtual void run() = 0;
};

/// A set of threads that run things. Thread: any.
class Executor {
 public:
  virtual ~Executor() = default;

  /// Runs `work` later on one of the threads, which keeps it alive till then.
  virtual void execute(std::shared_ptr<Runnable> work) = 0;

  /// Whether other work waits for a thread, so that long work should queue up again behind it.
  [[nodiscard]] virtual bool hasWaitingWork() const = 0;
};

}  // namespace zaffo
