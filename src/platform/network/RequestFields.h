// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>
#include <vector>

#include "platform/network/HttpClient.h"

namespace zaffo::network {

/// The fields that an application gives for addresses: tokens, cookies. Pure. Thread: the owner's.
class RequestFields {
 public:
  /// Whether a name and a value can stand in a request: nothing in them ends a line.
  [[nodiscard]] static bool isValid(const HttpField& field);

  /// For `base` and all that lies below it on the same server, in place of those that were given
  /// for `base` before; none takes them back.
  void set(URL base, std::vector<HttpField> fields);
  /// Those for an address: of all bases that it lies below the one with the longest path counts.
  [[nodiscard]] std::vector<HttpField> forAddress(const NSURL& address) const;

 private:
  struct Given {
    URL base;
    std::vector<HttpField> fields;
  };
  std::vector<Given> given_;
};

}  // namespace zaffo::network
