#pragma once

#include "platform/FatalError.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// What is `queue`'s is touched in its blocks alone: in debug builds a caller that runs elsewhere
/// ends the program. Costs nothing in others.
inline void assertCurrent([[maybe_unused]] const DispatchQueue& queue) {
#ifndef NDEBUG
  if (!queue.isCurrent()) fatalError("\"" + queue.label() + "\" is another queue than this one.");
#endif
}

}  // namespace zaffo
