#pragma once

#include <string>

namespace zaffo {

/// Names the calling thread for debuggers and `top -H`; 15 characters are kept. Does nothing where
/// the system has no such names.
void setThreadName(const std::string& name);

}  // namespace zaffo
