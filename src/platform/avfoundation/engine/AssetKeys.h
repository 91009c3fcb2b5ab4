#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/avfoundation/AVAsset.h"

namespace zaffo {

/// Sees to it that the keys of an asset are loaded, waiting for them when they are not: not for the
/// main thread, unless it knows that they are. Why one is not loaded, or null.
[[nodiscard]] NSErrorPtr loadKeysAndWait(AVAsset& asset, const std::vector<std::string>& keys);

}  // namespace zaffo
