// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/FatalError.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// Asserts that the caller runs in a block of `queue`: in debug builds a caller elsewhere ends the
/// program. Costs nothing in other builds.
inline void assertCurrent([[maybe_unused]] const DispatchQueue& queue) {
#ifndef NDEBUG
  if (!queue.isCurrent()) fatalError("\"" + queue.label() + "\" is another queue than this one.");
#endif
}

}  // namespace zaffo
