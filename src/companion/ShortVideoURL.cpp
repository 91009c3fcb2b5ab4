// SPDX-License-Identifier: Apache-2.0
#include "companion/ShortVideoURL.h"

namespace zaffo {

std::string shortVideoUrl(const NSURL& url) {
  const std::string name = url.lastPathComponent();
  if (url.isFileURL()) return name;
  const bool hasName = !name.empty() && name != "/";
  return hasName ? url.host() + "/" + name : url.host();
}

}  // namespace zaffo
