// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/foundation/NSURL.h"
#include "platform/foundation/Result.h"

namespace zaffo::network {

using URL = std::shared_ptr<const NSURL>;

/// What addresses that came from the network may name: http and https, never a file, a data:
/// address or another scheme, and from what came by https only https. What came from a local file
/// may name files. Pure. Thread: any.
struct AddressRules {
  /// No address is longer than so many bytes.
  static constexpr std::size_t kLongest = 8192;

  /// Whether https may lead to http, which an application allows for its own servers.
  bool allowsInsecure = false;

  /// The address that `text` stands for in what was read from `base`, or why it must not be used.
  [[nodiscard]] Result<URL> resolve(const std::string& text, const URL& base) const;
};

/// Whether it is fetched over the network at all: http or https.
[[nodiscard]] bool isRemote(const NSURL& address);

/// Whether what an application gives for the one may be sent to the other: scheme, host and port
/// are the same.
[[nodiscard]] bool isSameOrigin(const NSURL& one, const NSURL& other);

}  // namespace zaffo::network
