#include "platform/network/SharedResources.h"

#include <map>
#include <string>

#include "platform/Mutex.h"

namespace zaffo::network {
namespace {

struct Resources {
  Mutex resourcesMutex;
  std::map<std::string, std::weak_ptr<HttpResource>> byAddress ZAFFO_GUARDED_BY(resourcesMutex);
};

/// Never destroyed: other threads may ask until the very end.
Resources& resources() {
  static auto* const only = new Resources;
  return *only;
}

}  // namespace

std::shared_ptr<HttpResource> sharedResourceAt(const URL& address) {
  Resources& all = resources();
  MutexLock lock(all.resourcesMutex);
  std::erase_if(all.byAddress, [](const auto& entry) { return entry.second.expired(); });
  auto& known = all.byAddress[address->absoluteString()];
  auto resource = known.lock();
  if (!resource) known = resource = std::make_shared<HttpResource>(address);
  return resource;
}

}  // namespace zaffo::network
