// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/network/HttpResource.h"

namespace zaffo::network {

/// The bytes at http and https addresses: one resource for all who read an address at the same
/// time, so that the still picture of a page, its player and the loop's loader fetch nothing twice.
///
/// When its last reader goes, so does its traffic; its bytes are kept for the next one, unless the
/// server forbade that (Cache-Control: no-store) or reading failed. A reader who comes while they
/// are fresh takes them as they are; one who comes later has the server asked, once and before
/// anything is read, whether they are still the same. The budget's bound holds over those that are
/// read and those that are kept; the latter are let go of first, the one whose reader went earliest
/// first of all. Thread: any.
class SharedResources {
 public:
  /// No more are kept: each may have a file open.
  static constexpr std::size_t kMostKept = 128;

  /// The process's; never destroyed.
  [[nodiscard]] static SharedResources& shared();

  /// `client` and `budget` outlive it and its resources; the budget has no other keeper.
  SharedResources(HttpClient& client, ByteBudget& budget);
  ~SharedResources();
  SharedResources(const SharedResources&) = delete;
  SharedResources& operator=(const SharedResources&) = delete;

  [[nodiscard]] std::shared_ptr<HttpResource> at(const URL& address);

  /// For the resources that are given out from now on: the fields of requests to `base` and what
  /// lies below it (see RequestFields), and where bytes are kept besides memory, null for nowhere.
  void setFields(const URL& base, std::vector<HttpField> fields);
  void setCache(std::shared_ptr<DiskCache> cache);
  [[nodiscard]] std::shared_ptr<DiskCache> cache() const;

  /// Whether the bytes of an address are kept without a reader.
  [[nodiscard]] bool keeps(const URL& address) const;
  /// How many are.
  [[nodiscard]] std::size_t keptCount() const;
  /// Lets go of all of those.
  void forgetKept();

 private:
  class Shelf;
  const std::shared_ptr<Shelf> shelf_;
};

}  // namespace zaffo::network
