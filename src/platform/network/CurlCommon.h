// SPDX-License-Identifier: Apache-2.0
#pragma once

// The objects of libcurl, and what its errors are to a person.
#include <curl/curl.h>

#include <memory>
#include <string>

#include "platform/foundation/NSError.h"

namespace zaffo::network {

struct CurlDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlEasyPtr = std::unique_ptr<CURL, CurlDeleter>;
using CurlListPtr = std::unique_ptr<curl_slist, CurlDeleter>;

/// Why a transfer from `host` failed, and whether another try may succeed.
struct CurlFailure {
  NSErrorPtr error;
  bool mayPass = false;
};
[[nodiscard]] CurlFailure curlFailure(CURLcode code, const std::string& host);

}  // namespace zaffo::network
