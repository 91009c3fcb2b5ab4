// SPDX-License-Identifier: Apache-2.0
#include "BenchFeed.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "PictureMark.h"

namespace bench {

namespace {

constexpr double kPatience = 20;
constexpr int64_t kTurn = 50'000'000;  // nanoseconds the main loop waits for work at most

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

/// The first layer of a kind in a tree.
template <typename Layer>
Layer* layerIn(const std::shared_ptr<zaffo::CALayer>& layer) {
  if (auto* found = dynamic_cast<Layer*>(layer.get())) return found;
  for (const auto& below : layer->sublayers()) {
    if (auto* found = layerIn<Layer>(below)) return found;
  }
  return nullptr;
}

/// Calls `use` with the layer that shows a player's picture, whichever kind it is.
template <typename Result, typename Use>
Result withPictureLayer(const Handle& handle, Use use) {
  const auto root = handle->outputView()->layer();
  if (auto* layer = layerIn<zaffo::AVPlayerLayer>(root)) return use(*layer);
  if (auto* layer = layerIn<zaffo::AVSampleBufferDisplayLayer>(root)) return use(*layer);
  return Result();
}

std::shared_ptr<zaffo::AVPlayerItemLoader> loaderOf(const std::string& path, Loop loop) {
  const auto url = path.find("://") == std::string::npos ? zaffo::NSURL::fileURLWithPath(path)
                                                         : zaffo::NSURL::URLWithString(path);
  if (loop == Loop::Single) return zaffo::ZFSingleLoopVideoPlayerItemLoader::createWithURL(url);
  return zaffo::ZFLoopingVideoPlayerItemLoader::createWithURL(url);
}

}  // namespace

std::shared_ptr<zaffo::PlayerManager> makePool(Kind kind) {
  auto pool = zaffo::PlayerManager::create();
  pool->setUseFastPlayer(kind == Kind::Fast);
  return pool;
}

Video::Video(const std::string& path, std::string id, Loop loop)
    : loader_(loaderOf(path, loop)), id_(std::move(id)) {}

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
  return withPictureLayer<bool>(handle, [](auto& layer) { return layer.isReadyForDisplay(); });
}

zaffo::CVPixelBufferPtr shownPicture(const Handle& handle) {
  return withPictureLayer<zaffo::CVPixelBufferPtr>(handle, [](auto& layer) {
    const auto picture = layer.picture(static_cast<int64_t>(now() * 1e9));
    return picture ? picture->buffer : nullptr;
  });
}

uint64_t shownMark(const Handle& handle) {
  return withPictureLayer<uint64_t>(handle, [](auto& layer) -> uint64_t {
    const auto picture = layer.picture(static_cast<int64_t>(now() * 1e9));
    if (!picture || !picture->buffer) return 0;
    const zaffo::CVPixelBuffer& buffer = *picture->buffer;
    return pictureMark(buffer.planes[0].data, buffer.planes[0].stride, buffer.cropWidth,
                       buffer.cropHeight);
  });
}

Pictures picturesOf(const Handle& handle) {
  return withPictureLayer<Pictures>(handle, [](auto& layer) {
    return Pictures{layer.presentedFrames(), layer.droppedFrames()};
  });
}

void seekExactly(const Handle& handle, double seconds) {
  std::optional<bool> finished;
  handle->seekToTime(zaffo::CMTimeMakeWithSeconds(seconds, 600), zaffo::kCMTimeZero,
                     zaffo::kCMTimeZero, [&](bool value) { finished = value; });
  runUntil([&] { return finished.has_value(); }, "a seek");
  if (!*finished) fail("a seek was interrupted");
}

void seekUntilShown(const Handle& handle, double seconds, uint64_t mark) {
  handle->seekToTime(zaffo::CMTimeMakeWithSeconds(seconds, 600), zaffo::kCMTimeZero,
                     zaffo::kCMTimeZero, [](bool) {});
  runUntil([&] { return shownMark(handle) == mark; }, "the picture sought");
}

}  // namespace bench
