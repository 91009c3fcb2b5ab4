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

  /// Whether work made of several pieces should queue up again before its next one: other work
  /// waits for a thread, or the process is ending and nothing more is to start.
  [[nodiscard]] virtual bool shouldYield() const = 0;
};

}  // namespace zaffo
