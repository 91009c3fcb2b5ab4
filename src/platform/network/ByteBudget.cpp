#include "platform/network/ByteBudget.h"

#include <algorithm>

namespace zaffo::network {

ByteBudget& ByteBudget::shared() {
  static auto* const budget = new ByteBudget;
  return *budget;
}

void ByteBudget::add(const std::shared_ptr<Holder>& holder) {
  {
    MutexLock lock(holdersMutex_);
    holders_.push_back(holder);
  }
  share();
}

void ByteBudget::remove(const Holder& holder) {
  {
    MutexLock lock(holdersMutex_);
    std::erase_if(holders_, [&](const auto& held) {
      const auto other = held.lock();
      return !other || other.get() == &holder;
    });
  }
  share();
}

void ByteBudget::share() {
  std::vector<std::shared_ptr<Holder>> holders;
  {
    MutexLock lock(holdersMutex_);
    for (const auto& held : holders_) {
      if (auto holder = held.lock()) holders.push_back(std::move(holder));
    }
  }
  if (holders.empty()) return;
  const int64_t bound = std::min(most_, total_ / static_cast<int64_t>(holders.size()));
  for (const auto& holder : holders) holder->setByteBound(bound);
}

}  // namespace zaffo::network
