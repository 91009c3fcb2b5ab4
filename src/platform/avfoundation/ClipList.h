// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace zaffo {

/// A clip as a list names it.
struct ListedClip {
  std::shared_ptr<const NSURL> url;
  std::string title;  ///< empty where the list gives none
};

/// Reads a list of clips (M3U: an address or a path a line, with titles where it is extended), from
/// a file or from an http or https address, of 4 MiB and 50,000 clips at most. What a list of the
/// network names is of the network; one in a file may name files, too, from its own folder on.
///
/// Of a playlist that is itself one video in segments or renditions (HLS) comes one clip, which is
/// its own address. `completion` is called once on the main queue: with at least one clip, or with
/// why there is none. Thread: any.
ZAFFO_EXPORT void loadClipList(
    const std::shared_ptr<const NSURL>& url,
    std::function<void(std::vector<ListedClip> clips, const NSErrorPtr& error)> completion);

/// Whether an address looks as if a list were there: "a.m3u", "b.M3U8".
[[nodiscard]] ZAFFO_EXPORT bool isClipList(const NSURL& url);

}  // namespace zaffo
