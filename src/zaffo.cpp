// SPDX-License-Identifier: Apache-2.0
#include "zaffo.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "clip/ClipVideo.h"
#include "clip/PictureOutput.h"
#include "clip/PlayVideo.h"
#include "platform/Trace.h"
#include "platform/avfoundation/NetworkSettings.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/foundation/NSThread.h"
#include "pool/PlayerManager.h"

struct zaffo_pool {
  std::shared_ptr<zaffo::PlayerManager> manager;
};

struct zaffo_request {
  zaffo::ZFCancelCommandPtr command;
};

struct zaffo_player {
  std::shared_ptr<zaffo::PlayerDecorator> handle;
};

struct zaffo_output {
  std::shared_ptr<zaffo::PictureOutput> output;
};

struct zaffo_picture {
  zaffo::OutputPicture picture;
};

namespace {

int pixels(double length) {
  constexpr double kMost = std::numeric_limits<int>::max();
  return static_cast<int>(std::lround(std::min(length, kMost)));
}

/// What `work` gives, or `otherwise` when it throws.
template <class Result, class Work>
Result guarded(Result otherwise, const Work& work) noexcept {
  try {
    return work();
  } catch (...) {
    return otherwise;
  }
}

template <class Work>
void guarded(const Work& work) noexcept {
  try {
    work();
  } catch (...) {
  }
}

std::shared_ptr<const zaffo::NSURL> urlOf(const std::string& address) {
  if (address.find("://") == std::string::npos) return zaffo::NSURL::fileURLWithPath(address);
  return zaffo::NSURL::URLWithString(address);
}

/// Tells a request's owner of its end, with a player that is his from then on.
void answer(const zaffo::PlayerLoadResult& result, zaffo_play_callback* callback, void* user) {
  const auto handle = result.player();
  if (!handle) return callback(nullptr, result.error()->localizedDescription().c_str(), user);
  auto* const player = guarded<zaffo_player*>(nullptr, [&] { return new zaffo_player{handle}; });
  if (!player) handle->setRate(0);
  callback(player, player ? nullptr : "There is no memory left", user);
}

/// Tells of an address that is none, in a turn of its own as a loader would.
zaffo::ZFCancelCommandPtr refuse(const std::shared_ptr<zaffo::PlayerManager>& manager,
                                 const std::string& address, zaffo_play_callback* callback,
                                 void* user) {
  const auto isOver = std::make_shared<bool>(false);
  zaffo::dispatch_async(zaffo::dispatch_get_main_queue(), [=, pool = std::weak_ptr(manager)] {
    if (*isOver || pool.expired()) return;
    callback(nullptr, ("This is no address of a clip: " + address).c_str(), user);
  });
  return std::make_shared<zaffo::ZFCallbackCancelCommand>([isOver] { *isOver = true; });
}

zaffo::ZFCancelCommandPtr play(const std::shared_ptr<zaffo::PlayerManager>& manager,
                               const std::string& address, int loop, zaffo_play_callback* callback,
                               void* user) {
  using Loop = zaffo::ClipVideo::Loop;
  auto url = urlOf(address);
  if (!url) return refuse(manager, address, callback, user);
  return zaffo::play(
      manager,
      zaffo::ClipVideo::create(std::move(url),
                               loop == ZAFFO_LOOP_NONE ? Loop::None : Loop::Endless),
      [=](const zaffo::PlayerLoadResult& result) { answer(result, callback, user); });
}

}  // namespace

int zaffo_c_version(void) {
  return ZAFFO_C_VERSION;
}

void zaffo_main_adopt(void) {
  guarded([] { zaffo::NSThread::adoptMainThread(); });
}

int zaffo_main_descriptor(void) {
  return guarded(-1, [] { return zaffo::MainLoop::fileDescriptor(); });
}

int zaffo_main_run(void) {
  return guarded(-1, [] { return zaffo::MainLoop::runTurn(); });
}

zaffo_pool* zaffo_pool_create(int most_players, int most_idle) {
  return guarded<zaffo_pool*>(nullptr, [&] {
    auto pool = std::make_unique<zaffo_pool>(zaffo_pool{zaffo::PlayerManager::create()});
    if (most_players > 0) pool->manager->setMaxAllowedConcurrentPlayers(most_players);
    if (most_idle > 0) pool->manager->setMaxPlayersAtIdleState(most_idle);
    return pool.release();
  });
}

void zaffo_pool_release(zaffo_pool* pool) {
  guarded([&] { delete pool; });
}

void zaffo_pool_set_busy(zaffo_pool* pool, bool busy) {
  if (pool) guarded([&] { pool->manager->setMainThreadIsIdle(!busy); });
}

void zaffo_pool_set_fast(zaffo_pool* pool, bool fast) {
  if (pool) guarded([&] { pool->manager->setUseFastPlayer(fast); });
}

char* zaffo_pool_describe(const zaffo_pool* pool) {
  if (!pool) return nullptr;
  return guarded<char*>(nullptr, [&] { return strdup(pool->manager->debugDescription().c_str()); });
}

void zaffo_text_release(char* text) {
  std::free(text);
}

zaffo_request* zaffo_play(zaffo_pool* pool, const char* address, int loop,
                          zaffo_play_callback* callback, void* user) {
  const bool isLoop = loop == ZAFFO_LOOP_NONE || loop == ZAFFO_LOOP_ENDLESS;
  if (!pool || !address || !callback || !isLoop) return nullptr;
  return guarded<zaffo_request*>(nullptr, [&] {
    auto request = std::make_unique<zaffo_request>();
    const auto manager = pool->manager;  // which the callback may release inside the call
    request->command = play(manager, address, loop, callback, user);
    return request.release();
  });
}

void zaffo_request_release(zaffo_request* request) {
  const std::unique_ptr<zaffo_request> owned(request);
  if (owned) guarded([&] { owned->command->cancel(); });
}

void zaffo_player_release(zaffo_player* player) {
  guarded([&] { delete player; });
}

float zaffo_player_rate(const zaffo_player* player) {
  return player ? guarded(0.0f, [&] { return player->handle->rate(); }) : 0;
}

void zaffo_player_set_rate(zaffo_player* player, float rate) {
  if (player) guarded([&] { player->handle->setRate(rate); });
}

float zaffo_player_volume(const zaffo_player* player) {
  return player ? guarded(0.0f, [&] { return player->handle->volume(); }) : 0;
}

void zaffo_player_set_volume(zaffo_player* player, float volume) {
  if (player) guarded([&] { player->handle->setVolume(volume); });
}

void zaffo_player_seek(zaffo_player* player, double seconds) {
  if (!player || !std::isfinite(seconds) || seconds < 0) return;
  guarded([&] {
    player->handle->seekToTime(zaffo::CMTimeMakeWithSeconds(seconds, 1'000'000), zaffo::kCMTimeZero,
                               zaffo::kCMTimeZero, {});
  });
}

double zaffo_player_time(const zaffo_player* player) {
  if (!player) return 0;
  return guarded(0.0, [&] { return zaffo::CMTimeGetSeconds(player->handle->currentTime()); });
}

double zaffo_player_duration(const zaffo_player* player) {
  if (!player) return 0;
  return guarded(-1.0, [&] {
    const auto item = player->handle->playerItem();
    const zaffo::CMTime duration = item ? item->duration() : zaffo::kCMTimeIndefinite;
    return zaffo::CMTIME_IS_NUMERIC(duration) ? zaffo::CMTimeGetSeconds(duration) : -1;
  });
}

zaffo_output* zaffo_output_attach(zaffo_player* player, zaffo_output_callback* callback,
                                  void* user) {
  if (!player || !callback) return nullptr;
  return guarded<zaffo_output*>(nullptr, [&] {
    return new zaffo_output{zaffo::PictureOutput::attach(player->handle, [=] { callback(user); })};
  });
}

void zaffo_output_release(zaffo_output* output) {
  guarded([&] { delete output; });
}

zaffo_picture* zaffo_output_picture(zaffo_output* output) {
  if (!output) return nullptr;
  return guarded<zaffo_picture*>(nullptr, [&]() -> zaffo_picture* {
    auto picture = output->output->picture();
    return picture ? new zaffo_picture{std::move(*picture)} : nullptr;
  });
}

void zaffo_picture_release(zaffo_picture* picture) {
  guarded([&] { delete picture; });
}

int zaffo_picture_width(const zaffo_picture* picture) {
  return picture ? pixels(picture->picture.naturalSize().width) : 0;
}

int zaffo_picture_height(const zaffo_picture* picture) {
  return picture ? pixels(picture->picture.naturalSize().height) : 0;
}

bool zaffo_picture_convert(const zaffo_picture* picture, uint8_t* bgra, int width, int height,
                           ptrdiff_t stride) {
  if (!picture || !bgra) return false;
  return guarded(false, [&] { return picture->picture.convertTo(bgra, width, height, stride); });
}

void zaffo_set_trace(zaffo_trace_callback* callback, void* user) {
  guarded([&] {
    if (!callback) return zaffo::setTraceSink({});
    zaffo::setTraceSink([=](std::string_view line) { callback(std::string(line).c_str(), user); });
  });
}

bool zaffo_set_request_field(const char* base, const char* name, const char* value) {
  return guarded(false, [&] {
    const auto address = zaffo::NSURL::URLWithString(base ? base : "");
    std::vector<zaffo::NetworkSettings::Field> fields;
    if (name) fields.emplace_back(name, value ? value : "");
    return !zaffo::NetworkSettings::shared().setFields(address, std::move(fields));
  });
}

void zaffo_set_cache_folder(const char* path, int64_t bytes) {
  guarded([&] { zaffo::NetworkSettings::shared().setCacheFolder(path ? path : "", bytes); });
}
