// SPDX-License-Identifier: Apache-2.0
#include "platform/Trace.h"

#include <cstdio>
#include <memory>
#include <utility>

#include "platform/Mutex.h"

namespace zaffo {

namespace {

struct Sinks {
  Mutex presentMutex;
  std::shared_ptr<const TraceSink> present ZAFFO_GUARDED_BY(presentMutex);  ///< null: the output
};

/// Never destroyed: the last lines come while the process ends.
Sinks& sinks() {
  static auto* const all = new Sinks;
  return *all;
}

}  // namespace

void trace(std::string_view line) {
  std::shared_ptr<const TraceSink> sink;
  {
    MutexLock lock(sinks().presentMutex);
    sink = sinks().present;
  }
  if (sink) return (*sink)(line);
  std::printf("%.*s\n", static_cast<int>(line.size()), line.data());
}

void setTraceSink(TraceSink sink) {
  auto present = sink ? std::make_shared<const TraceSink>(std::move(sink)) : nullptr;
  MutexLock lock(sinks().presentMutex);
  sinks().present.swap(present);
}

}  // namespace zaffo
