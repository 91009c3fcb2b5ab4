// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/Mutex.h"

namespace zaffo::network {

/// Keeps the link free for those who read while they wait for bytes: what is only preloaded pauses
/// until none of them does. Thread: any.
class PreloadGate : public std::enable_shared_from_this<PreloadGate> {
 public:
  /// One that preloads. Thread: network.
  class Guest {
   public:
    virtual ~Guest() = default;
    /// Nobody who reads waits any more.
    virtual void gateOpened() = 0;
  };

  /// One who reads begins to wait, or has done so.
  void close();
  void open();
  [[nodiscard]] bool isOpen() const;

  /// Tells the guest, for as long as it lives or until it leaves, whenever the gate opens.
  void add(std::weak_ptr<Guest> guest);
  void remove(const Guest& guest);

 private:
  void tell();

  mutable Mutex gateMutex_;
  int waiting_ ZAFFO_GUARDED_BY(gateMutex_) = 0;
  std::vector<std::weak_ptr<Guest>> guests_ ZAFFO_GUARDED_BY(gateMutex_);
};

}  // namespace zaffo::network
