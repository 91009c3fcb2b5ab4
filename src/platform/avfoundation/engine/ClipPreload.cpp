// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/ClipPreload.h"

#include <algorithm>
#include <utility>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/dispatch/Confinement.h"

namespace zaffo {

std::shared_ptr<ClipPreload> ClipPreload::begin(std::shared_ptr<media::ByteSource> bytes,
                                                double seconds, DispatchQueuePtr queue,
                                                Completion done) {
  const std::shared_ptr<ClipPreload> preload(
      new ClipPreload(std::move(bytes), seconds, std::move(queue), std::move(done)));
  preload->opening_->setReadyHandler(preload->posting());
  preload->posting()();
  return preload;
}

/// What makes a step on the queue, from any thread, unless this is gone by then.
std::function<void()> ClipPreload::posting() {
  return [weakSelf = weak_from_this(), queue = queue_] {
    queue->async([weakSelf] {
      if (const auto self = weakSelf.lock()) self->step();
    });
  };
}

void ClipPreload::step() {
  assertCurrent(*queue_);
  if (!done_ || !open()) return;
  while (Track* const track = next()) {
    media::Sample sample;
    const auto outcome = track->cursor->next(sample);
    if (outcome == media::Outcome::Again) return;
    if (outcome == media::Outcome::Error) return end(track->cursor->error());
    if (CMTIME_IS_NUMERIC(sample.decode)) track->time = CMTimeGetSeconds(sample.decode);
    track->isRead = outcome == media::Outcome::End || track->time >= seconds_;
  }
  end(nullptr);
}

/// Whether it is open, and was not found to be hopeless.
bool ClipPreload::open() {
  if (source_) return true;
  if (opening_->step() == media::Outcome::Again) return false;
  auto opened = opening_->take();
  opening_.reset();
  if (!opened) {
    end(opened.error());
    return false;
  }
  source_ = *std::move(opened);
  addTrack(AVMediaTypeVideo);
  addTrack(AVMediaTypeAudio);
  return true;
}

/// The first of its kind, which is what a player reads.
void ClipPreload::addTrack(AVMediaType type) {
  const auto& all = source_->tracks();
  const auto found = std::ranges::find(all, type, &AVAssetTrack::mediaType);
  if (found == all.end() || source_->whyNotDecoded((*found)->trackID)) return;
  auto cursor = source_->openCursor((*found)->trackID);
  if (!cursor) return;
  (*cursor)->setReadyHandler(posting());
  tracks_.push_back({*std::move(cursor)});
}

/// The track that was read least far; null when all were.
ClipPreload::Track* ClipPreload::next() {
  Track* least = nullptr;
  for (Track& track : tracks_) {
    if (!track.isRead && (!least || track.time < least->time)) least = &track;
  }
  return least;
}

void ClipPreload::end(const NSErrorPtr& error) {
  tracks_.clear();
  source_ = nullptr;
  std::exchange(done_, nullptr)(error);
}

}  // namespace zaffo
