// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Export.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace zaffo {

/// What an application says about clips of http and https addresses: who it is to their servers,
/// and where their bytes are kept from one start of the program to the next. It holds for the
/// assets that are made from then on. Thread: any.
class ZAFFO_EXPORT NetworkSettings {
 public:
  static constexpr int64_t kUsualCacheBytes = int64_t{256} * 1024 * 1024;

  using Field = std::pair<std::string, std::string>;  // name and value
  /// Null when the folder is used, or why it is not.
  using Completion = std::function<void(const NSErrorPtr& error)>;

  /// The process's; never destroyed.
  [[nodiscard]] static NetworkSettings& shared();

  /// Fields of each request for `base` and what lies below it on the same server, such as
  /// "Authorization" or "Cookie", in place of those given for `base` before; of several bases the
  /// nearest counts. They go to no other scheme, host or port, wherever the server leads. What was
  /// fetched with some is not given to readers with others. Fails, and changes nothing, where the
  /// address is not of the network or a name or a value cannot stand in a request.
  virtual NSErrorPtr setFields(const std::shared_ptr<const NSURL>& base,
                               std::vector<Field> fields) = 0;

  /// Keeps bytes in a folder, `bytes` of them at most, beside those in memory, under the same rules
  /// of freshness; an empty path ends that. Clips that were used least recently go first. The
  /// folder is made where there is none; it is one program's at a time, and may hold other files.
  ///
  /// A disk that is full or fails leaves bytes out, one that stalls is done without, and damaged
  /// bytes are fetched anew. `completion` may be null; it is called on the main queue.
  virtual void setCacheFolder(const std::string& path, int64_t bytes = kUsualCacheBytes,
                              Completion completion = nullptr) = 0;

  /// Lets go of all bytes, in memory and on disk, that nobody reads.
  virtual void clearCache() = 0;

 protected:
  virtual ~NetworkSettings() = default;
};

}  // namespace zaffo
