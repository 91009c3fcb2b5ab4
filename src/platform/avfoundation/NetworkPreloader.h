// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/Export.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace zaffo {

/// Fetches what clips of http and https addresses begin with before anybody asks for them, so that
/// an asset of one of them opens, and its player shows the first picture, without a request. What
/// was fetched is kept in memory beside what was played: 32 MiB in all, of which the clips that are
/// being played may take what they need, and for five minutes unless the server says otherwise.
///
/// The two of highest priority are fetched at a time, the one asked for first among equals. All
/// pause while a player, or anybody else who reads, waits for bytes. Thread: any.
class ZAFFO_EXPORT NetworkPreloader {
 public:
  /// Null when the clip's beginning is here, or why it will not come.
  using Completion = std::function<void(const NSErrorPtr& error)>;

  /// The process's; never destroyed.
  [[nodiscard]] static NetworkPreloader& shared();

  /// Fetches the header, and picture and sound of the first `seconds`; 0 for the header and the
  /// first picture. Asked for again, an address goes on with the seconds and the priority given
  /// last, and with what came so far. `completion` may be null; it is called on the main queue,
  /// once, unless the address is cancelled or asked for again before. What is not of the network is
  /// here already.
  virtual void preload(const std::shared_ptr<const NSURL>& url, double seconds, int priority = 0,
                       Completion completion = nullptr) = 0;
  /// Ends its traffic at once, unless somebody reads the clip; what has come is kept. Nothing
  /// happens where nothing is under way.
  virtual void cancel(const std::shared_ptr<const NSURL>& url) = 0;

 protected:
  virtual ~NetworkPreloader() = default;
};

}  // namespace zaffo
