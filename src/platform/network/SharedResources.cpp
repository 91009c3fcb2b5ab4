// SPDX-License-Identifier: Apache-2.0
#include "platform/network/SharedResources.h"

#include <algorithm>
#include <list>
#include <map>
#include <string>
#include <utility>

#include "platform/Mutex.h"
#include "platform/network/DiskCache.h"
#include "platform/network/RequestFields.h"

namespace zaffo::network {

/// What is read and what is kept. Its readers' resources hold it weakly. Thread: any.
class SharedResources::Shelf final : public ByteBudget::Keeper,
                                     public std::enable_shared_from_this<Shelf> {
 public:
  Shelf(HttpClient& client, ByteBudget& budget) : client_(client), budget_(budget) {}

  std::shared_ptr<HttpResource> at(const URL& address) {
    MutexLock lock(shelfMutex_);
    HttpOptions options = optionsForWhileLocked(*address);
    const std::string key = options.identityOf(*address);
    std::erase_if(read_, [](const auto& entry) { return entry.second.expired(); });
    auto& known = read_[key];
    if (auto resource = known.lock()) return resource;
    std::unique_ptr<HttpResource> owned = takeKeptWhileLocked(key);
    if (owned) {
      owned->wake();
    } else {
      owned = std::make_unique<HttpResource>(address, std::move(options), client_, budget_);
    }
    const std::shared_ptr<HttpResource> resource(
        owned.release(), [weakShelf = weak_from_this(), key](HttpResource* unread) {
          std::unique_ptr<HttpResource> left(unread);
          if (const auto shelf = weakShelf.lock()) shelf->putBack(key, std::move(left));
        });
    known = resource;
    return resource;
  }

  void makeRoom() override {
    MutexLock lock(shelfMutex_);
    while (!kept_.empty() && budget_.counted() > budget_.total()) kept_.pop_front();
  }

  void setFields(const URL& base, std::vector<HttpField> fields) {
    MutexLock lock(shelfMutex_);
    fields_.set(base, std::move(fields));
  }

  void setCache(std::shared_ptr<DiskCache> cache) {
    MutexLock lock(shelfMutex_);
    cache_ = std::move(cache);
  }

  std::shared_ptr<DiskCache> cache() const {
    MutexLock lock(shelfMutex_);
    return cache_;
  }

  bool keeps(const NSURL& address) const {
    MutexLock lock(shelfMutex_);
    const std::string key = optionsForWhileLocked(address).identityOf(address);
    return std::ranges::find(kept_, key, &Kept::key) != kept_.end();
  }

  std::size_t keptCount() const {
    MutexLock lock(shelfMutex_);
    return kept_.size();
  }

  void forgetKept() {
    std::list<Kept> gone;
    MutexLock lock(shelfMutex_);
    gone.swap(kept_);
  }

 private:
  struct Kept {
    std::string key;
    std::unique_ptr<HttpResource> resource;
  };

  HttpOptions optionsForWhileLocked(const NSURL& address) const ZAFFO_REQUIRES(shelfMutex_) {
    HttpOptions options;
    options.fields = fields_.forAddress(address);
    options.cache = cache_;
    return options;
  }

  void putBack(const std::string& key, std::unique_ptr<HttpResource> resource) {
    resource->rest();
    if (!resource->isWorthKeeping()) return;
    std::unique_ptr<HttpResource> excess;  // goes when nothing is locked
    {
      MutexLock lock(shelfMutex_);
      // Somebody who came in between reads anew, and that will be newer.
      const auto read = read_.find(key);
      if (read != read_.end() && !read->second.expired()) return;
      (void)takeKeptWhileLocked(key);
      kept_.push_back({key, std::move(resource)});
      if (kept_.size() > kMostKept) excess = takeKeptWhileLocked(kept_.front().key);
    }
    makeRoom();
  }

  std::unique_ptr<HttpResource> takeKeptWhileLocked(const std::string& key)
      ZAFFO_REQUIRES(shelfMutex_) {
    const auto found = std::ranges::find(kept_, key, &Kept::key);
    if (found == kept_.end()) return nullptr;
    auto resource = std::move(found->resource);
    kept_.erase(found);
    return resource;
  }

  HttpClient& client_;
  ByteBudget& budget_;
  mutable Mutex shelfMutex_;
  RequestFields fields_ ZAFFO_GUARDED_BY(shelfMutex_);
  std::shared_ptr<DiskCache> cache_ ZAFFO_GUARDED_BY(shelfMutex_);
  std::map<std::string, std::weak_ptr<HttpResource>> read_ ZAFFO_GUARDED_BY(shelfMutex_);
  std::list<Kept> kept_ ZAFFO_GUARDED_BY(shelfMutex_);  // whose reader went earliest first
};

SharedResources& SharedResources::shared() {
  static auto* const resources = new SharedResources(HttpClient::shared(), ByteBudget::shared());
  return *resources;
}

SharedResources::SharedResources(HttpClient& client, ByteBudget& budget)
    : shelf_(std::make_shared<Shelf>(client, budget)) {
  budget.setKeeper(shelf_);
}

SharedResources::~SharedResources() = default;

std::shared_ptr<HttpResource> SharedResources::at(const URL& address) {
  return shelf_->at(address);
}

void SharedResources::setFields(const URL& base, std::vector<HttpField> fields) {
  shelf_->setFields(base, std::move(fields));
}

void SharedResources::setCache(std::shared_ptr<DiskCache> cache) {
  shelf_->setCache(std::move(cache));
}

std::shared_ptr<DiskCache> SharedResources::cache() const {
  return shelf_->cache();
}

bool SharedResources::keeps(const URL& address) const {
  return shelf_->keeps(*address);
}

std::size_t SharedResources::keptCount() const {
  return shelf_->keptCount();
}

void SharedResources::forgetKept() {
  shelf_->forgetKept();
}

}  // namespace zaffo::network
