// SPDX-License-Identifier: Apache-2.0

// An application outside the project: it has the installed headers and libraries, nothing else.
#include <ZaffoPlayback/ZaffoPlayback.h>

#include <cstdio>
#include <memory>
#include <string>

static_assert(ZAFFO_VERSION_AT_LEAST(0, 1, 0) && !ZAFFO_VERSION_AT_LEAST(1, 0, 0));

namespace {

/// Asks a loader for the item of a file that is not there; the answer comes through the media and
/// the main queue. Returns whether it is none.
bool missingFileHasNoItem() {
  const auto loader = zaffo::ZFSingleLoopVideoPlayerItemLoader::createWithURL(
      zaffo::NSURL::fileURLWithPath("/no such folder/a b.mp4"));
  std::shared_ptr<zaffo::AVPlayerItem> item;
  loader->loadAVPlayerItemWithOptions({}, [&](auto loaded, double, double) {
    zaffo::dispatch_async(zaffo::dispatch_get_main_queue(), [&item, loaded] {
      item = loaded;
      zaffo::MainLoop::quit();
    });
  });
  zaffo::MainLoop::run();
  return item == nullptr;
}

}  // namespace

int main() {
  const zaffo::CMTime sum = zaffo::CMTimeAdd(zaffo::CMTimeMake(1, 3), zaffo::CMTimeMake(1, 6));
  const auto pool = zaffo::PlayerManager::create();
  std::printf("ZaffoPlayback %s, %s, bound %lld\n", ZaffoPlaybackVersionString,
              zaffo::CMTimeDescription(sum).c_str(),
              static_cast<long long>(pool->maxAllowedConcurrentPlayers()));
  const bool right = sum == zaffo::CMTimeMake(1, 2) && pool->debugDescription().empty() &&
                     std::string(ZaffoPlaybackVersionString).rfind("0.", 0) == 0 &&
                     ZaffoPlaybackVersionNumber > 0 && missingFileHasNoItem();
  return right ? 0 : 1;
}
