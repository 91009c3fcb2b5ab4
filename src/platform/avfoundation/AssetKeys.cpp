#include "platform/avfoundation/AssetKeys.h"

#include <algorithm>
#include <future>

#include "platform/media/FFmpegError.h"

namespace zaffo {

std::shared_ptr<const NSError> loadKeysAndWait(AVAsset& asset,
                                               const std::vector<std::string>& keys) {
  const auto isLoaded = [&asset](const std::string& key) {
    return asset.statusOfValueForKey(key) == AVKeyValueStatus::Loaded;
  };
  if (std::ranges::all_of(keys, isLoaded)) return nullptr;
  const auto ended = std::make_shared<std::promise<void>>();
  asset.loadValuesAsynchronouslyForKeys(keys, [ended] { ended->set_value(); });
  ended->get_future().wait();
  for (const std::string& key : keys) {
    std::shared_ptr<const NSError> error;
    if (asset.statusOfValueForKey(key, &error) == AVKeyValueStatus::Loaded) continue;
    return error ? error : media::makeError(AVErrorUnknown, "The asset was not loaded.");
  }
  return nullptr;
}

}  // namespace zaffo
