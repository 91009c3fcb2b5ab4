// SPDX-License-Identifier: Apache-2.0
#include "feed/PagePreloads.h"

#include <algorithm>
#include <utility>

namespace zaffo::feed {

PagePreloads::PagePreloads(NetworkPreloader& preloader, AddressOfPage addressOfPage)
    : preloader_(preloader), addressOfPage_(std::move(addressOfPage)) {}

PagePreloads::~PagePreloads() {
  keepOnly({});
}

void PagePreloads::fetch(const std::vector<int>& pages) {
  int priority = static_cast<int>(pages.size());
  for (const int page : pages) {
    --priority;
    const auto address = addressOfPage_(page);
    if (!address || address->isFileURL() || fetched_.contains(page)) continue;
    fetched_.emplace(page, address);
    preloader_.preload(address, kSeconds, priority);
  }
}

void PagePreloads::keepOnly(const std::vector<int>& pages) {
  std::vector<std::shared_ptr<const NSURL>> left;
  std::erase_if(fetched_, [&](const auto& entry) {
    if (std::ranges::find(pages, entry.first) != pages.end()) return false;
    left.push_back(entry.second);
    return true;
  });
  for (const auto& address : left) {
    // The same clip may be on several pages.
    const bool isKept = std::ranges::any_of(fetched_, [&](const auto& entry) {
      return entry.second->absoluteString() == address->absoluteString();
    });
    if (!isKept) preloader_.cancel(address);
  }
}

}  // namespace zaffo::feed
