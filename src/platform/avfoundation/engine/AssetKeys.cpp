// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetKeys.h"

#include <algorithm>
#include <future>

#include "platform/dispatch/OutsideWait.h"
#include "platform/foundation/MakeError.h"

namespace zaffo {

NSErrorPtr loadKeysAndWait(AVAsset& asset, const std::vector<std::string>& keys) {
  const auto isLoaded = [&asset](const std::string& key) {
    return asset.statusOfValueForKey(key) == AVKeyValueStatus::Loaded;
  };
  if (std::ranges::all_of(keys, isLoaded)) return nullptr;
  const auto ended = std::make_shared<std::promise<void>>();
  asset.loadValuesAsynchronouslyForKeys(keys, [ended] { ended->set_value(); });
  {
    const OutsideWait wait;
    ended->get_future().wait();
  }
  for (const std::string& key : keys) {
    NSErrorPtr error;
    if (asset.statusOfValueForKey(key, &error) == AVKeyValueStatus::Loaded) continue;
    return error ? error : makeError(AVErrorUnknown, "The asset was not loaded.");
  }
  return nullptr;
}

}  // namespace zaffo
