// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSNotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/Mutex.h"

namespace zaffo {

namespace {

struct Registration {
  std::weak_ptr<void> observer;
  const void* observerAddress;  // still known in the observer's destructor
  std::string name;
  std::weak_ptr<const void> object;
  const void* objectAddress;  // null for any object
  NSNotificationCenter::Handler handler;
  std::atomic<bool> removed{false};

  [[nodiscard]] bool isDead() const {
    return observer.expired() || (objectAddress && object.expired());
  }

  [[nodiscard]] bool concerns(const NSNotification& notification) const {
    if (name != notification.name) return false;
    // A later object may have the address of one that no longer exists.
    return !objectAddress || (objectAddress == notification.object.get() && !object.expired());
  }
};

using Registrations = std::vector<std::shared_ptr<Registration>>;

/// Moves what `leaves` selects out of `all`, in order, so that it can be released with no lock
/// held.
template <typename Predicate>
Registrations takeOut(Registrations& all, Predicate leaves) {
  const auto middle = std::stable_partition(
      all.begin(), all.end(), [&](const auto& registration) { return !leaves(*registration); });
  Registrations taken(std::make_move_iterator(middle), std::make_move_iterator(all.end()));
  all.erase(middle, all.end());
  return taken;
}

}  // namespace

struct NSNotificationCenter::Registry {
  Mutex registrationsMutex;
  Registrations registrations ZAFFO_GUARDED_BY(registrationsMutex);
};

NSNotificationCenter::NSNotificationCenter() : registry_(std::make_unique<Registry>()) {}
NSNotificationCenter::~NSNotificationCenter() = default;

NSNotificationCenter& NSNotificationCenter::defaultCenter() {
  // Never destroyed: objects that outlive the end of main() still unregister here.
  static auto* const center = new NSNotificationCenter;
  return *center;
}

void NSNotificationCenter::addObserver(const std::weak_ptr<void>& observer, std::string name,
                                       std::shared_ptr<const void> object, Handler handler) {
  const auto living = observer.lock();
  if (!living || !handler) return;
  auto registration = std::make_shared<Registration>();
  registration->observer = observer;
  registration->observerAddress = living.get();
  registration->name = std::move(name);
  registration->object = object;
  registration->objectAddress = object.get();
  registration->handler = std::move(handler);

  Registrations dead;
  MutexLock lock(registry_->registrationsMutex);
  // Observers that were destroyed without unregistering are swept out here, so the list does not
  // outgrow its use.
  dead = takeOut(registry_->registrations, [](const auto& other) { return other.isDead(); });
  registry_->registrations.push_back(std::move(registration));
}

void NSNotificationCenter::removeObserver(const void* observer) {
  Registrations removed;
  MutexLock lock(registry_->registrationsMutex);
  removed = takeOut(registry_->registrations,
                    [&](const auto& other) { return other.observerAddress == observer; });
  for (const auto& registration : removed) registration->removed = true;
}

void NSNotificationCenter::postNotification(const std::string& name,
                                            std::shared_ptr<const void> object,
                                            NSNotification::UserInfo userInfo) {
  const NSNotification notification{name, std::move(object), std::move(userInfo)};
  Registrations concerned;
  {
    MutexLock lock(registry_->registrationsMutex);
    std::copy_if(registry_->registrations.begin(), registry_->registrations.end(),
                 std::back_inserter(concerned),
                 [&](const auto& registration) { return registration->concerns(notification); });
  }
  for (const auto& registration : concerned) {
    const auto observer = registration->observer.lock();
    if (observer && !registration->removed) registration->handler(notification);
  }
}

}  // namespace zaffo
