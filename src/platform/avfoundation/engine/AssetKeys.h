// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/avfoundation/AVAsset.h"

namespace zaffo {

/// Makes sure that the keys of an asset are loaded, and waits for those that are not: not to be
/// called on the main thread unless they are. Returns why one is not loaded, or null.
[[nodiscard]] NSErrorPtr loadKeysAndWait(AVAsset& asset, const std::vector<std::string>& keys);

}  // namespace zaffo
