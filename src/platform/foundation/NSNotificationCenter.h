// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/Export.h"

namespace zaffo {

/// What an observer receives: the notification's name and the object it is about.
struct NSNotification {
  using UserInfo = std::map<std::string, std::any>;

  std::string name;
  std::shared_ptr<const void> object;  ///< null when posted without an object
  UserInfo userInfo;                   ///< further information, under keys defined with the name
};

/// Delivers notifications by name and object. Delivery is synchronous, on the posting thread, with
/// no lock held; observers may be added and removed during delivery. Thread: any.
class ZAFFO_EXPORT NSNotificationCenter {
 public:
  using Handler = std::function<void(const NSNotification&)>;

  NSNotificationCenter();
  ~NSNotificationCenter();
  NSNotificationCenter(const NSNotificationCenter&) = delete;
  NSNotificationCenter& operator=(const NSNotificationCenter&) = delete;

  [[nodiscard]] static NSNotificationCenter& defaultCenter();

  /// Calls `handler` for each `name` about `object` (any object when null) while `observer` lives,
  /// in the order of registration. Observer and object are held weakly; the observer is kept alive
  /// during a delivery to it. An observer added during a delivery receives the next one.
  void addObserver(const std::weak_ptr<void>& observer, std::string name,
                   std::shared_ptr<const void> object, Handler handler);

  /// Removes every registration of `observer`, a raw address so that a destructor can pass `this`
  /// (the address the weak reference was made from). After it returns on the posting thread no
  /// handler of that observer runs; a delivery in progress on another thread may still finish.
  void removeObserver(const void* observer);

  /// Notifies the observers of `name`; returns when all of them have been called.
  void postNotification(const std::string& name, std::shared_ptr<const void> object = nullptr,
                        NSNotification::UserInfo userInfo = {});

 private:
  struct Registry;
  std::unique_ptr<Registry> registry_;
};

}  // namespace zaffo
