// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PlayerVideoOutput.h"

#include <utility>

namespace zaffo {

void PlayerVideoOutput::attach(std::shared_ptr<media::FrameStore> frames,
                               CGAffineTransform preferredTransform) {
  {
    MutexLock lock(attachmentMutex_);
    frames_ = std::move(frames);
    transform_ = preferredTransform;
    ++generation_;
  }
  pictureChanged();
}

void PlayerVideoOutput::pictureChanged() {
  std::vector<std::shared_ptr<const Observer>> observers;
  {
    MutexLock lock(attachmentMutex_);
    std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
    for (const auto& weakObserver : observers_) {
      if (auto observer = weakObserver.lock()) observers.push_back(std::move(observer));
    }
  }
  for (const auto& observer : observers) (*observer)();
}

media::VideoOutput::Picture PlayerVideoOutput::pictureAtHostTime(int64_t hostNanoseconds) {
  Picture picture;
  std::shared_ptr<media::FrameStore> frames;
  {
    MutexLock lock(attachmentMutex_);
    frames = frames_;
    picture.preferredTransform = transform_;
    picture.itemGeneration = generation_;
  }
  if (frames) picture.buffer = frames->bufferAtHostTime(hostNanoseconds);
  return picture;
}

std::optional<int64_t> PlayerVideoOutput::planNextPicture() {
  std::shared_ptr<media::FrameStore> frames;
  {
    MutexLock lock(attachmentMutex_);
    frames = frames_;
  }
  return frames ? frames->planNextDraw() : std::nullopt;
}

uint64_t PlayerVideoOutput::itemGeneration() const {
  MutexLock lock(attachmentMutex_);
  return generation_;
}

bool PlayerVideoOutput::hasPicture() const {
  MutexLock lock(attachmentMutex_);
  return frames_ && frames_->hasFrame();
}

uint64_t PlayerVideoOutput::droppedFrames() const {
  MutexLock lock(attachmentMutex_);
  return frames_ ? frames_->droppedFrames() : 0;
}

std::shared_ptr<void> PlayerVideoOutput::observePictures(std::function<void()> changed) {
  auto observer = std::make_shared<const Observer>(std::move(changed));
  MutexLock lock(attachmentMutex_);
  std::erase_if(observers_, [](const auto& each) { return each.expired(); });
  observers_.push_back(observer);
  return std::const_pointer_cast<Observer>(observer);
}

}  // namespace zaffo
