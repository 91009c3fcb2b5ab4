#include "BenchFeed.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

namespace bench {

namespace {

constexpr double kPatience = 20;
constexpr int64_t kTurn = 50'000'000;  // nanoseconds the main loop waits for work at most

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

const zaffo::AVPlayerLayer* playerLayerIn(const std::shared_ptr<zaffo::CALayer>& layer) {
  if (const auto* found = dynamic_cast<const zaffo::AVPlayerLayer*>(layer.get())) return found;
  for (const auto& below : layer->sublayers()) {
    if (const auto* found = playerLayerIn(below)) return found;
  }
  return nullptr;
}

}  // namespace

Video::Video(const std::string& path, std::string id)
    : loader_(zaffo::ZFSingleLoopVideoPlayerItemLoader::createWithURL(
          zaffo::NSURL::fileURLWithPath(path))),
      id_(std::move(id)) {}

zaffo::ZFCancelCommandPtr Video::loadAVPlayerItemWithOptions(
    zaffo::AVPlayerItemLoaderOptions options, ItemCompletion completeBlock) {
  return loader_->loadAVPlayerItemWithOptions(options, std::move(completeBlock));
}

zaffo::ZFCancelCommandPtr Video::loadThumbnailWithPriority(unsigned long priority,
                                                           zaffo::CGSize targetSize,
                                                           ThumbnailCompletion completion) {
  return loader_->loadThumbnailWithPriority(priority, targetSize, std::move(completion));
}

zaffo::ZFCancelCommandPtr Video::preloadWithPriority(unsigned long priority,
                                                     PreloadCompletion completeBlock) {
  return loader_->preloadWithPriority(priority, std::move(completeBlock));
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void runUntil(const std::function<bool()>& condition, const char* what) {
  const double deadline = now() + kPatience;
  while (!condition()) {
    if (now() > deadline) fail(std::string("waited in vain for ") + what);
    zaffo::MainLoop::runTurn(kTurn);
  }
}

void runFor(double seconds) {
  const double end = now() + seconds;
  for (double left = seconds; left > 0; left = end - now())
    zaffo::MainLoop::runTurn(static_cast<int64_t>(left * 1e9));
}

namespace {

void onMainThread(std::function<void()> block) {
  if (zaffo::NSThread::isMainThread()) return block();
  zaffo::dispatch_async(zaffo::dispatch_get_main_queue(), std::move(block));
}

/// Loads the item and calls `done` with it on the main queue, as an application does.
void requestItem(const std::shared_ptr<Video>& video, std::function<void(Item)> done) {
  video->loadAVPlayerItemWithOptions({}, [done = std::move(done)](Item item, double, double) {
    zaffo::dispatch_async(zaffo::dispatch_get_main_queue(), [done, item] { done(item); });
  });
}

void requestPlayer(const std::shared_ptr<zaffo::PlayerManager>& pool,
                   const std::shared_ptr<Video>& video, const Item& item, Handle& handle) {
  pool->loadPlayer(video, item, {}, [&handle](const zaffo::PlayerLoadResult& result) {
    if (result.error()) fail(result.error()->localizedDescription());
    // A load ends on a thread of the player's choosing.
    onMainThread([&handle, player = result.player()] { handle = player; });
  });
}

}  // namespace

Item loadItem(const std::shared_ptr<Video>& video) {
  Item loaded;
  bool done = false;
  requestItem(video, [&](Item item) {
    loaded = std::move(item);
    done = true;
  });
  runUntil([&] { return done; }, "an item");
  if (!loaded) fail("no item of " + video->videoId());
  return loaded;
}

Handle loadPlayer(const std::shared_ptr<zaffo::PlayerManager>& pool,
                  const std::shared_ptr<Video>& video, const Item& item) {
  Handle handle;
  requestPlayer(pool, video, item, handle);
  if (!handle) runUntil([&] { return handle != nullptr; }, "a player");
  return handle;
}

Handle openCold(const std::shared_ptr<zaffo::PlayerManager>& pool,
                const std::shared_ptr<Video>& video) {
  Handle handle;
  requestItem(video, [&](const Item& item) { requestPlayer(pool, video, item, handle); });
  runUntil([&] { return handle != nullptr; }, "a player");
  return handle;
}

bool hasPicture(const Handle& handle) {
  const auto* layer = playerLayerIn(handle->outputView()->layer());
  return layer && layer->isReadyForDisplay();
}

Pictures picturesOf(const Handle& handle) {
  const auto* layer = playerLayerIn(handle->outputView()->layer());
  return layer ? Pictures{layer->presentedFrames(), layer->droppedFrames()} : Pictures{};
}

void seekExactly(const Handle& handle, double seconds) {
  std::optional<bool> finished;
  handle->seekToTime(zaffo::CMTimeMakeWithSeconds(seconds, 600), zaffo::kCMTimeZero,
                     zaffo::kCMTimeZero, [&](bool value) { finished = value; });
  runUntil([&] { return finished.has_value(); }, "a seek");
  if (!*finished) fail("a seek was interrupted");
}

}  // namespace bench
