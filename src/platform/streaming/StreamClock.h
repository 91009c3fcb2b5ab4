// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTime.h"

namespace zaffo::streaming {

/// Where the times that segments tell lie on the stream's time line. The segments of one run share
/// an offset, so that they follow each other as their own times say, whatever their list rounds.
/// Thread: any.
class StreamClock {
 public:
  /// What is to be added to a segment's times. `told`: when it begins by its own times; `listed`:
  /// when its list says so.
  [[nodiscard]] CMTime offsetFor(int run, CMTime told, CMTime listed);

 private:
  Mutex offsetsMutex_;
  std::map<int, CMTime> offsets_ ZAFFO_GUARDED_BY(offsetsMutex_);  // by run
};

}  // namespace zaffo::streaming
