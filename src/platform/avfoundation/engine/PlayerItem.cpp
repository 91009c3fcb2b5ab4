// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PlayerItem.h"

#include <array>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSThread.h"
#include "platform/media/playback/Playback.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {

namespace {

constexpr std::array kNeededKeys = {"tracks", "duration"};

/// That many lie ahead of a player that is likely to keep up.
constexpr double kEnoughSeconds = 2;

bool hasEnded(AVKeyValueStatus status) {
  return status != AVKeyValueStatus::Unknown && status != AVKeyValueStatus::Loading;
}

NSErrorPtr playbackError(AVError code, const char* text) {
  return NSError::create(AVFoundationErrorDomain, code, {{NSLocalizedDescriptionKey, text}});
}

}  // namespace

AVPlayerItemStatus PlayerItem::status() const {
  MutexLock lock(statusMutex_);
  return status_;
}

NSErrorPtr PlayerItem::error() const {
  MutexLock lock(statusMutex_);
  return error_;
}

CMTime PlayerItem::duration() const {
  const CMTime duration = asset_->duration();
  return CMTIME_IS_NUMERIC(duration) ? duration : kCMTimeIndefinite;
}

std::shared_ptr<const AVAudioMix> PlayerItem::audioMix() const {
  MutexLock lock(statusMutex_);
  return audioMix_;
}

void PlayerItem::setAudioMix(std::shared_ptr<const AVAudioMix> mix) {
  MutexLock lock(statusMutex_);
  audioMix_ = std::move(mix);
}

void PlayerItem::setPlayback(std::weak_ptr<const media::Playback> playback) {
  MutexLock lock(statusMutex_);
  playback_ = std::move(playback);
}

/// Null until the asset is loaded.
std::optional<PlayerItem::Buffer> PlayerItem::buffer() const {
  const auto source = asset_->sampleSource();
  if (!source) return std::nullopt;
  std::weak_ptr<const media::Playback> weakPlayback;
  {
    MutexLock lock(statusMutex_);
    weakPlayback = playback_;
  }
  Buffer buffer{source->bufferedAhead()};
  const auto playback = weakPlayback.lock();
  if (!playback) return buffer;
  const bool hasMore = buffer.ahead.isRest || buffer.ahead.seconds > 0;
  buffer.position = playback->currentTime();
  buffer.isEmpty = playback->waitsForSource() || (playback->stoodStillDry() && !hasMore);
  return buffer;
}

std::vector<CMTimeRange> PlayerItem::loadedTimeRanges() const {
  const auto at = buffer();
  const CMTime whole = duration();
  if (!at || !CMTIME_IS_NUMERIC(whole)) return {};
  if (at->ahead.isAll) return {CMTimeRangeMake(kCMTimeZero, whole)};
  const CMTime left = whole - at->position;
  const CMTime ahead =
      at->ahead.isRest ? left : CMTimeMinimum(left, CMTimeMakeWithSeconds(at->ahead.seconds, 600));
  if (ahead <= kCMTimeZero) return {};
  return {CMTimeRangeMake(at->position, ahead)};
}

bool PlayerItem::isPlaybackBufferEmpty() const {
  const auto at = buffer();
  return !at || at->isEmpty;
}

bool PlayerItem::isPlaybackLikelyToKeepUp() const {
  const auto at = buffer();
  if (!at || at->isEmpty) return false;
  return at->ahead.isRest || at->ahead.isFull || at->ahead.seconds >= kEnoughSeconds;
}

bool PlayerItem::isPlaybackBufferFull() const {
  const auto at = buffer();
  return at && (at->ahead.isRest || at->ahead.isFull);
}

void PlayerItem::prepare(std::function<void()> settled) {
  assertMainThread();
  if (status() != AVPlayerItemStatus::Unknown) return;
  bool loaded = true;
  for (const char* key : kNeededKeys) loaded &= hasEnded(asset_->statusOfValueForKey(key));
  if (loaded) return settle();
  asset_->loadValuesAsynchronouslyForKeys(
      {kNeededKeys.begin(), kNeededKeys.end()},
      [weakSelf = weak_from_this(), settled = std::move(settled)] {
        dispatch_async(dispatch_get_main_queue(), [weakSelf, settled] {
          const auto self = weakSelf.lock();
          if (!self) return;
          self->settle();
          settled();
        });
      });
}

void PlayerItem::settle() {
  auto reason = reasonNotToPlay();
  MutexLock lock(statusMutex_);
  if (status_ != AVPlayerItemStatus::Unknown) return;
  status_ = reason ? AVPlayerItemStatus::Failed : AVPlayerItemStatus::ReadyToPlay;
  error_ = std::move(reason);
}

NSErrorPtr PlayerItem::reasonNotToPlay() const {
  for (const char* key : kNeededKeys) {
    NSErrorPtr error;
    if (asset_->statusOfValueForKey(key, &error) == AVKeyValueStatus::Loaded) continue;
    return error ? error : playbackError(AVErrorUnknown, "The video could not be loaded.");
  }
  const auto source = asset_->sampleSource();
  return source ? source->whyNotPlayed()
                : playbackError(AVErrorDecoderNotFound,
                                "The video is in a format that cannot be decoded here.");
}

bool PlayerItem::claim(const AVPlayer& player) {
  MutexLock lock(statusMutex_);
  if (player_ && player_ != &player) return false;
  player_ = &player;
  return true;
}

void PlayerItem::giveUp(const AVPlayer& player) {
  MutexLock lock(statusMutex_);
  if (player_ == &player) player_ = nullptr;
}

void PlayerItem::fail(NSErrorPtr error) {
  MutexLock lock(statusMutex_);
  status_ = AVPlayerItemStatus::Failed;
  error_ = std::move(error);
}

}  // namespace zaffo
