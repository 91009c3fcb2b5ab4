// SPDX-License-Identifier: Apache-2.0
#include "platform/network/ByteBudget.h"

#include <algorithm>
#include <utility>

namespace zaffo::network {

ByteBudget& ByteBudget::shared() {
  static auto* const budget = new ByteBudget;
  return *budget;
}

ByteBudget::ByteBudget(int64_t total, int64_t most)
    : most_(most), state_(std::make_shared<State>(total)) {}

void ByteBudget::Count::set(int64_t bytes) {
  state_->counted += bytes - std::exchange(bytes_, bytes);
}

void ByteBudget::Count::makeRoom() const {
  if (state_->counted <= state_->total) return;
  std::shared_ptr<Keeper> keeper;
  {
    MutexLock lock(state_->holdersMutex);
    keeper = state_->keeper.lock();
  }
  if (keeper) keeper->makeRoom();
}

void ByteBudget::add(const std::shared_ptr<Holder>& holder) {
  {
    MutexLock lock(state_->holdersMutex);
    state_->holders.push_back(holder);
  }
  share();
}

void ByteBudget::remove(const Holder& holder) {
  {
    MutexLock lock(state_->holdersMutex);
    std::erase_if(state_->holders, [&](const auto& held) {
      const auto other = held.lock();
      return !other || other.get() == &holder;
    });
  }
  share();
}

void ByteBudget::setKeeper(std::weak_ptr<Keeper> keeper) {
  MutexLock lock(state_->holdersMutex);
  state_->keeper = std::move(keeper);
}

int64_t ByteBudget::total() const {
  return state_->total;
}

int64_t ByteBudget::counted() const {
  return state_->counted;
}

void ByteBudget::share() {
  std::vector<std::shared_ptr<Holder>> holders;
  {
    MutexLock lock(state_->holdersMutex);
    for (const auto& held : state_->holders) {
      if (auto holder = held.lock()) holders.push_back(std::move(holder));
    }
  }
  if (holders.empty()) return;
  const int64_t bound = std::min(most_, state_->total / static_cast<int64_t>(holders.size()));
  for (const auto& holder : holders) holder->setByteBound(bound);
}

}  // namespace zaffo::network
