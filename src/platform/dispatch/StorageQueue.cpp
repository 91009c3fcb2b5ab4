// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/StorageQueue.h"

#include <memory>
#include <utility>

#include "platform/dispatch/BlockingThreads.h"
#include "platform/dispatch/SerialQueue.h"

namespace zaffo {

DispatchQueuePtr makeStorageQueue(std::string label) {
  return std::make_shared<SerialQueue>(std::move(label), BlockingThreads::storage());
}

}  // namespace zaffo
