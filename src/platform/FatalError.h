// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "platform/Export.h"

namespace zaffo {

/// Writes `message` and a line feed to standard error and ends the program with std::abort.
/// For programming errors that leave no state worth continuing from. Thread: any.
[[noreturn]] ZAFFO_EXPORT void fatalError(std::string_view message);

}  // namespace zaffo
