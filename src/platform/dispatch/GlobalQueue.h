// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/dispatch/Executor.h"
#include "platform/dispatch/QueueBase.h"

namespace zaffo {

/// The concurrent queue of one priority of the shared pool.
class GlobalQueue final : public QueueBase {
 public:
  GlobalQueue(std::string label, Executor& executor)
      : QueueBase(std::move(label)), executor_(executor) {}

  void async(DispatchBlock block) override;

 private:
  class Task;

  Executor& executor_;
};

}  // namespace zaffo
