// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/NetworkSettings.h"

#include <algorithm>
#include <map>

#include "platform/Mutex.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/MakeError.h"
#include "platform/network/DiskCache.h"
#include "platform/network/NetworkError.h"
#include "platform/network/RequestFields.h"
#include "platform/network/SharedResources.h"

namespace zaffo {
namespace {

void tell(const NetworkSettings::Completion& completion, const NSErrorPtr& error) {
  if (!completion) return;
  dispatch_async(dispatch_get_main_queue(), [completion, error] { completion(error); });
}

class Settings final : public NetworkSettings {
 public:
  NSErrorPtr setFields(const std::shared_ptr<const NSURL>& base,
                       std::vector<Field> fields) override {
    if (!base || !network::isRemote(*base)) {
      return network::networkError(network::NSURLErrorUnsupportedURL,
                                   "Fields are for addresses of http and https.");
    }
    const auto wrong = std::ranges::find_if_not(fields, network::RequestFields::isValid);
    if (wrong != fields.end()) {
      return makeError(AVErrorUnknown,
                       "The field \"" + wrong->first + "\" cannot stand in a request.");
    }
    network::SharedResources::shared().setFields(base, std::move(fields));
    return nullptr;
  }

  void setCacheFolder(const std::string& path, int64_t bytes, Completion completion) override {
    auto& resources = network::SharedResources::shared();
    if (path.empty()) {
      resources.setCache(nullptr);
      return tell(completion, nullptr);
    }
    const auto cache = cacheIn(path, bytes);
    resources.setCache(cache);
    cache->enter([completion](const NSErrorPtr& error) { tell(completion, error); });
  }

  void clearCache() override {
    auto& resources = network::SharedResources::shared();
    resources.forgetKept();
    if (const auto cache = resources.cache()) cache->clear();
  }

 private:
  /// One that clips still read from stays the folder's only one.
  std::shared_ptr<network::DiskCache> cacheIn(const std::string& path, int64_t bytes) {
    MutexLock lock(cachesMutex_);
    std::erase_if(caches_, [](const auto& known) { return known.second.expired(); });
    auto cache = caches_[path].lock();
    if (cache) {
      cache->setBound(bytes);
      return cache;
    }
    cache = network::DiskCache::in(path, bytes);
    caches_[path] = cache;
    return cache;
  }

  Mutex cachesMutex_;
  std::map<std::string, std::weak_ptr<network::DiskCache>> caches_ ZAFFO_GUARDED_BY(cachesMutex_);
};

}  // namespace

NetworkSettings& NetworkSettings::shared() {
  static auto* const settings = new Settings;
  return *settings;
}

}  // namespace zaffo
