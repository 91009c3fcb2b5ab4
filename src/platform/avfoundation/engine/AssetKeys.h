// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "platform/avfoundation/AVAsset.h"

namespace zaffo {

/// Whether all of the keys of an asset are loaded.
[[nodiscard]] bool areLoaded(const AVAsset& asset, const std::vector<std::string>& keys);

/// Why one of the keys is not loaded, after loading them has ended; null when all are.
[[nodiscard]] NSErrorPtr whyNotLoaded(const AVAsset& asset, const std::vector<std::string>& keys);

/// Makes sure that the keys of an asset are loaded, and waits for those that are not: for who has
/// to answer before returning, and not on the main thread. Returns why one is not loaded, or null.
[[nodiscard]] NSErrorPtr loadKeysAndWait(AVAsset& asset, const std::vector<std::string>& keys);

}  // namespace zaffo
