// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// A new serial queue whose blocks may wait for files. Its threads serve such queues alone, up to a
/// bound (BlockingThreads::storage): when a disk stalls, what waits for a device has threads still.
[[nodiscard]] DispatchQueuePtr makeStorageQueue(std::string label);

}  // namespace zaffo
