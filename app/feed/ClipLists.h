// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include "feed/FolderScan.h"

namespace zaffo::feed {

using Clips = std::vector<ListedClip>;

/// Puts the clips of each list (M3U) among the addresses in its place, one list after the other; a
/// list that cannot be read stays, as a page that will tell why, and so does one that is a single
/// video (HLS). Calls `done` once: inside the call where there is no list. Thread: main.
void readClipLists(const URLs& urls, std::function<void(Clips clips)> done);

}  // namespace zaffo::feed
