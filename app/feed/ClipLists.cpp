// SPDX-License-Identifier: Apache-2.0
#include "feed/ClipLists.h"

#include <utility>

namespace zaffo::feed {

namespace {

/// Reads on from `next`; `clips` are what the addresses before it gave.
void readOn(URLs urls, std::size_t next, Clips clips, std::function<void(Clips)> done) {
  for (; next < urls.size() && !isClipList(*urls[next]); ++next) clips.push_back({urls[next], ""});
  if (next == urls.size()) return done(std::move(clips));
  const auto list = urls[next];
  loadClipList(list, [urls = std::move(urls), next, clips = std::move(clips),
                      done = std::move(done)](Clips listed, const NSErrorPtr& error) mutable {
    if (error) listed = {{urls[next], ""}};
    clips.insert(clips.end(), listed.begin(), listed.end());
    readOn(std::move(urls), next + 1, std::move(clips), std::move(done));
  });
}

}  // namespace

void readClipLists(const URLs& urls, std::function<void(Clips clips)> done) {
  readOn(urls, 0, {}, std::move(done));
}

}  // namespace zaffo::feed
