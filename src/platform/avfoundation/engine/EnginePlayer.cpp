// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/EnginePlayer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/avfoundation/AVAudioMix.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSThread.h"
#include "platform/media/MediaServices.h"

namespace zaffo {

namespace {

/// The same completion, called on the main queue.
std::function<void(bool)> onMainQueue(std::function<void(bool)> completion) {
  if (!completion) return nullptr;
  return [completion = std::move(completion)](bool finished) {
    dispatch_async(dispatch_get_main_queue(), [completion, finished] { completion(finished); });
  };
}

/// Tells the time of a playback without keeping it.
std::function<CMTime()> timeOf(const std::shared_ptr<media::Playback>& playback) {
  return [weakPlayback = std::weak_ptr(playback)] {
    const auto current = weakPlayback.lock();
    return current ? current->currentTime() : kCMTimeZero;
  };
}

std::vector<media::TrackVolume> volumesOf(const AVAudioMix* mix) {
  std::vector<media::TrackVolume> volumes;
  if (!mix) return volumes;
  for (const auto& parameters : mix->inputParameters()) {
    if (!parameters) continue;
    media::TrackVolume& volume = volumes.emplace_back();
    volume.trackID = parameters->trackID();
    for (const AVVolumeRamp& ramp : parameters->volumeRamps()) {
      volume.ramps.push_back({ramp.range, ramp.start, ramp.end});
    }
  }
  return volumes;
}

NSErrorPtr itemIsTaken() {
  return NSError::create(
      AVFoundationErrorDomain, AVErrorUnknown,
      {{NSLocalizedDescriptionKey, "A player item cannot be in two players at a time."}});
}

CGAffineTransform transformOf(const AVAsset& asset) {
  const auto tracks = asset.tracksWithMediaType(AVMediaTypeVideo);
  return tracks.empty() ? CGAffineTransformIdentity : tracks.front()->preferredTransform;
}

}  // namespace

std::shared_ptr<EnginePlayer> EnginePlayer::create(media::AudioOutput& output) {
  const std::shared_ptr<EnginePlayer> player(new EnginePlayer(output));
  player->resetObservation_ =
      media::MediaServices::shared().observeReset([weakPlayer = std::weak_ptr(player)] {
        if (const auto reset = weakPlayer.lock()) reset->mediaServicesWereReset();
      });
  return player;
}

EnginePlayer::EnginePlayer(media::AudioOutput& output) : audioOutput_(output) {}

EnginePlayer::~EnginePlayer() {
  for (const auto& observer : observers_) observer->cancel();
  closePlayback();
  failPrerolls();
  setItem(nullptr);
}

/// The old item may be the last to hold an opened file: that is closed on a worker.
void EnginePlayer::setItem(std::shared_ptr<PlayerItem> item) {
  {
    MutexLock lock(itemMutex_);
    item_.swap(item);
  }
  if (!item) return;
  item->giveUp(*this);
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT),
                 [old = std::move(item)] {});
}

std::shared_ptr<media::Playback> EnginePlayer::playback() const {
  MutexLock lock(itemMutex_);
  return playback_;
}

std::shared_ptr<AVPlayerItem> EnginePlayer::currentItem() const {
  MutexLock lock(itemMutex_);
  return item_;
}

AVPlayerStatus EnginePlayer::status() const {
  return error() ? AVPlayerStatus::Failed : AVPlayerStatus::ReadyToPlay;
}

NSErrorPtr EnginePlayer::error() const {
  MutexLock lock(itemMutex_);
  return error_;
}

CMTime EnginePlayer::currentTime() const {
  const auto current = playback();
  return current ? current->currentTime() : kCMTimeZero;
}

void EnginePlayer::setRate(float rate) {
  assertMainThread();
  const auto item = currentItem();
  const bool hopeless = error() || (item && item->status() == AVPlayerItemStatus::Failed);
  rate_ = rate > 0 && std::isfinite(rate) && !hopeless ? rate : 0;
  if (const auto current = playback()) current->setRate(rate_);
}

void EnginePlayer::setVolume(float volume) {
  assertMainThread();
  volume_ = volume > 0 ? std::min(volume, 1.0f) : 0;
  if (const auto current = playback()) current->setVolume(volume_);
}

// Items.

void EnginePlayer::replaceCurrentItemWithPlayerItem(std::shared_ptr<AVPlayerItem> item) {
  assertMainThread();
  if (item == currentItem()) return;
  const auto next = std::dynamic_pointer_cast<PlayerItem>(std::move(item));
  if (next && !next->claim(*this)) throw NSErrorException(itemIsTaken());
  closePlayback();
  failPrerolls();
  setItem(next);
  if (!next) return;
  next->prepare([weakSelf = weak_from_this(), weakItem = std::weak_ptr(next)] {
    const auto self = weakSelf.lock();
    const auto prepared = weakItem.lock();
    if (self && prepared && self->currentItem() == prepared) self->itemSettled(prepared);
  });
  if (next->status() != AVPlayerItemStatus::Unknown) itemSettled(next);
}

void EnginePlayer::itemSettled(const std::shared_ptr<PlayerItem>& item) {
  assertMainThread();
  if (playback()) return;
  if (item->status() == AVPlayerItemStatus::ReadyToPlay && !error()) {
    openPlayback();
  } else {
    failPrerolls();
  }
}

void EnginePlayer::openPlayback() {
  assertMainThread();
  std::shared_ptr<PlayerItem> item;
  {
    MutexLock lock(itemMutex_);
    item = item_;
  }
  const auto opened = media::Playback::create(item->asset()->sampleSource(), audioOutput_,
                                              eventsFor(item), volumesOf(item->audioMix().get()));
  output_->attach(opened->frames(), transformOf(*item->asset()));
  {
    MutexLock lock(itemMutex_);
    playback_ = opened;
  }
  item->setPlayback(opened);
  opened->setVolume(volume_);
  if (rate_ > 0) opened->setRate(rate_);
  for (auto& completion : std::exchange(waitingPrerolls_, {})) {
    opened->preroll(onMainQueue(std::move(completion)));
  }
  for (const auto& observer : observers_) observer->follow(opened->timebase(), timeOf(opened));
}

void EnginePlayer::closePlayback() {
  std::shared_ptr<media::Playback> closed;
  {
    MutexLock lock(itemMutex_);
    closed = std::exchange(playback_, nullptr);
    if (item_) item_->setPlayback({});
  }
  if (!closed) return;
  for (const auto& observer : observers_) observer->follow(nullptr);
  output_->attach(nullptr, CGAffineTransformIdentity);
  closed->close();
}

/// A player made before a reset is of no use any more.
void EnginePlayer::mediaServicesWereReset() {
  assertMainThread();
  closePlayback();
  failPrerolls();
  rate_ = 0;
  MutexLock lock(itemMutex_);
  error_ = NSError::create(
      AVFoundationErrorDomain, AVErrorMediaServicesWereReset,
      {{NSLocalizedDescriptionKey, "The media services were reset; make a new player."}});
}

// Events: from the playback's queue to the main thread.

media::Playback::Events EnginePlayer::eventsFor(const std::shared_ptr<PlayerItem>& item) {
  const auto stopped = [weakSelf = weak_from_this(), opening = ++openings_](uint64_t command,
                                                                            NSErrorPtr error) {
    dispatch_async(dispatch_get_main_queue(), [weakSelf, opening, command, error] {
      const auto self = weakSelf.lock();
      if (self && self->openings_ == opening) self->playbackStopped(command, error);
    });
  };
  media::Playback::Events events;
  events.pictureChanged = [output = output_] { output->pictureChanged(); };
  events.ended = [stopped](uint64_t command) { stopped(command, nullptr); };
  events.failed = [stopped, weakItem = std::weak_ptr(item)](uint64_t command, NSErrorPtr error) {
    if (const auto failedItem = weakItem.lock()) failedItem->fail(error);
    stopped(command, std::move(error));
  };
  return events;
}

/// A stop that crossed a newer command on its way here is not told: the command goes on from it.
void EnginePlayer::playbackStopped(uint64_t command, const NSErrorPtr& error) {
  assertMainThread();
  const auto current = playback();
  if (!current || !current->isLatestCommand(command)) return;
  rate_ = 0;
  NSNotification::UserInfo details;
  if (error) details[AVPlayerItemFailedToPlayToEndTimeErrorKey] = error;
  NSNotificationCenter::defaultCenter().postNotification(
      error ? AVPlayerItemFailedToPlayToEndTimeNotification
            : AVPlayerItemDidPlayToEndTimeNotification,
      std::static_pointer_cast<const void>(currentItem()), std::move(details));
}

// Seeks and prerolls.

void EnginePlayer::seekToTime(CMTime time) {
  seekToTime(time, kCMTimePositiveInfinity, kCMTimePositiveInfinity, nullptr);
}

void EnginePlayer::seekToTime(CMTime time, CMTime toleranceBefore, CMTime toleranceAfter,
                              SeekCompletion completion) {
  assertMainThread();
  auto delivered = onMainQueue(std::move(completion));
  if (const auto current = playback()) {
    current->seek(time, toleranceBefore, toleranceAfter, std::move(delivered));
  } else if (delivered) {
    delivered(false);
  }
}

void EnginePlayer::prerollAtRate(float /*rate*/, PrerollCompletion completion) {
  assertMainThread();
  if (!completion) completion = [](bool) {};
  if (const auto current = playback()) {
    current->preroll(onMainQueue(std::move(completion)));
    return;
  }
  const auto item = currentItem();
  waitingPrerolls_.push_back(std::move(completion));
  if (!item || item->status() == AVPlayerItemStatus::Failed || error()) failPrerolls();
}

void EnginePlayer::cancelPendingPrerolls() {
  assertMainThread();
  failPrerolls();
  if (const auto current = playback()) current->cancelPrerolls();
}

void EnginePlayer::failPrerolls() {
  for (auto& completion : std::exchange(waitingPrerolls_, {})) {
    if (const auto delivered = onMainQueue(std::move(completion))) delivered(false);
  }
}

// Time observers.

std::shared_ptr<void> EnginePlayer::addBoundaryTimeObserverForTimes(std::vector<CMTime> times,
                                                                    DispatchQueuePtr queue,
                                                                    std::function<void()> block) {
  return addObserver(
      std::make_shared<BoundaryTimeObserver>(std::move(times), std::move(queue), std::move(block)));
}

std::shared_ptr<void> EnginePlayer::addPeriodicTimeObserverForInterval(
    CMTime interval, DispatchQueuePtr queue, std::function<void(CMTime)> block) {
  return addObserver(
      std::make_shared<PeriodicTimeObserver>(interval, std::move(queue), std::move(block)));
}

std::shared_ptr<void> EnginePlayer::addObserver(std::shared_ptr<TimeObserver> observer) {
  assertMainThread();
  observers_.push_back(observer);
  if (const auto current = playback()) observer->follow(current->timebase(), timeOf(current));
  return observer;
}

void EnginePlayer::removeTimeObserver(const std::shared_ptr<void>& token) {
  assertMainThread();
  const auto found = std::ranges::find(observers_, token);
  if (found == observers_.end()) return;
  const auto removed = std::move(*found);
  observers_.erase(found);
  removed->cancel();
}

}  // namespace zaffo
