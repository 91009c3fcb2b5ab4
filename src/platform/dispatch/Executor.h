// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

namespace zaffo {

/// Something a worker runs once for each time it is handed to an Executor.
class Runnable {
 public:
  virtual ~Runnable() = default;
  virtual void run() = 0;
};

/// A set of threads that run things. Thread: any.
class Executor {
 public:
  virtual ~Executor() = default;

  /// Runs `work` later on one of the threads; it is kept alive until then.
  virtual void execute(std::shared_ptr<Runnable> work) = 0;

  /// Whether work that consists of several pieces should queue up again before the next one: other
  /// work is waiting for a thread, or the process is ending and nothing more may start.
  [[nodiscard]] virtual bool shouldYield() const = 0;
};

}  // namespace zaffo
