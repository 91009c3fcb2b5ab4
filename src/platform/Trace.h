// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string_view>

#include "platform/Export.h"

namespace zaffo {

/// Takes a line without its line feed, on any thread, several at once; may not call setTraceSink().
using TraceSink = std::function<void(std::string_view line)>;

/// Writes a line of what the library tells about itself: to standard output, unless an application
/// wants it elsewhere. Thread: any.
ZAFFO_EXPORT void trace(std::string_view line);

/// Sends the lines to `sink` from now on; an empty one means standard output again. A line that is
/// under way on another thread may still go to the former sink. Thread: any.
ZAFFO_EXPORT void setTraceSink(TraceSink sink);

}  // namespace zaffo
