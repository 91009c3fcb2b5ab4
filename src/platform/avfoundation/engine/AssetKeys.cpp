// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetKeys.h"

#include <algorithm>
#include <memory>

#include "platform/dispatch/OutsideSignal.h"
#include "platform/foundation/MakeError.h"

namespace zaffo {

bool areLoaded(const AVAsset& asset, const std::vector<std::string>& keys) {
  return std::ranges::all_of(keys, [&asset](const std::string& key) {
    return asset.statusOfValueForKey(key) == AVKeyValueStatus::Loaded;
  });
}

NSErrorPtr whyNotLoaded(const AVAsset& asset, const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    NSErrorPtr error;
    if (asset.statusOfValueForKey(key, &error) == AVKeyValueStatus::Loaded) continue;
    return error ? error : makeError(AVErrorUnknown, "The asset was not loaded.");
  }
  return nullptr;
}

NSErrorPtr loadKeysAndWait(AVAsset& asset, const std::vector<std::string>& keys) {
  if (areLoaded(asset, keys)) return nullptr;
  const auto ended = std::make_shared<OutsideSignal>();
  asset.loadValuesAsynchronouslyForKeys(keys, [ended] { ended->announce(); });
  ended->wait();
  return whyNotLoaded(asset, keys);
}

}  // namespace zaffo
