// SPDX-License-Identifier: Apache-2.0
#include "platform/network/PreloadGate.h"

#include <utility>

#include "platform/network/NetworkLoop.h"

namespace zaffo::network {

void PreloadGate::close() {
  MutexLock lock(gateMutex_);
  ++waiting_;
}

void PreloadGate::open() {
  MutexLock lock(gateMutex_);
  if (--waiting_ > 0 || guests_.empty()) return;
  NetworkLoop::shared().post([self = shared_from_this()] { self->tell(); });
}

bool PreloadGate::isOpen() const {
  MutexLock lock(gateMutex_);
  return waiting_ == 0;
}

void PreloadGate::add(std::weak_ptr<Guest> guest) {
  MutexLock lock(gateMutex_);
  guests_.push_back(std::move(guest));
}

void PreloadGate::remove(const Guest& guest) {
  std::vector<std::shared_ptr<Guest>> others;  // one that ends here does so without the lock
  MutexLock lock(gateMutex_);
  std::erase_if(guests_, [&](const auto& held) {
    const auto other = others.emplace_back(held.lock());
    return !other || other.get() == &guest;
  });
}

void PreloadGate::tell() {
  std::vector<std::shared_ptr<Guest>> guests;
  {
    MutexLock lock(gateMutex_);
    if (waiting_ > 0) return;
    for (const auto& held : guests_) {
      if (auto guest = held.lock()) guests.push_back(std::move(guest));
    }
  }
  for (const auto& guest : guests) guest->gateOpened();
}

}  // namespace zaffo::network
