// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/Export.h"
#include "platform/foundation/NSURL.h"

namespace zaffo {

/// A short, readable form of a video's address for descriptions and logs: the file's name
/// ("clip.mp4"), after the host for a remote one ("example.com/clip.mp4"). Not an address: folders,
/// port, query and credentials are left out. Thread: any.
[[nodiscard]] ZAFFO_EXPORT std::string shortVideoUrl(const NSURL& url);

}  // namespace zaffo
