// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/ImageLine.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "platform/avfoundation/engine/ImageRequest.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/playback/DecodeTurn.h"

namespace zaffo {

/// An image under way. Keeps itself until it is over. Thread: the request, one at a time; ready(),
/// any.
class ImageLine::Work : public std::enable_shared_from_this<Work> {
 public:
  Work(ImageLine& line, std::unique_ptr<ImageRequest> request, Completion completion)
      : line_(line), request_(std::move(request)), completion_(std::move(completion)) {}

  void prepare() {
    self_ = shared_from_this();
    request_->setReadyHandler([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->ready();
    });
  }

  /// Whether it was at work before. Guarded by the line's mutex.
  bool hasBegun = false;

  /// At work: makes a few steps. It is at its place until it is over, or waits.
  void turn() {
    for (media::DecodeTurn turn; turn.goesOn();) {
      setAtWork();
      const media::Outcome outcome = request_->step();
      if (outcome == media::Outcome::Working) continue;
      if (outcome != media::Outcome::Again) return finish();
      if (waits()) return line_.leave();
    }
    line_.begin(shared_from_this());
  }

 private:
  enum class State { AtWork, HeardMore, Waiting };

  void setAtWork() {
    MutexLock lock(stateMutex_);
    state_ = State::AtWork;
  }
  /// False when bytes came while it looked for them.
  bool waits() {
    MutexLock lock(stateMutex_);
    if (state_ == State::HeardMore) return false;
    state_ = State::Waiting;
    return true;
  }
  void ready() {
    {
      MutexLock lock(stateMutex_);
      if (std::exchange(state_, State::HeardMore) != State::Waiting) return;
    }
    line_.enterAgain(shared_from_this());
  }
  void finish() {
    const auto self = std::move(self_);
    completion_(*request_);
    completion_ = nullptr;
    request_.reset();
    line_.end();
  }

  ImageLine& line_;
  std::unique_ptr<ImageRequest> request_;
  Completion completion_;
  std::shared_ptr<Work> self_;  ///< until it is over
  Mutex stateMutex_;
  State state_ ZAFFO_GUARDED_BY(stateMutex_) = State::AtWork;
};

ImageLine& ImageLine::shared() {
  static auto* const line = new ImageLine;
  return *line;
}

ImageLine::ImageLine() : freePlaces_(std::max(1U, std::thread::hardware_concurrency())) {}

void ImageLine::make(std::unique_ptr<ImageRequest> request, Completion completion) {
  auto work = std::make_shared<Work>(*this, std::move(request), std::move(completion));
  work->prepare();
  enter(std::move(work));
}

void ImageLine::enter(WorkPtr work) {
  {
    MutexLock lock(lineMutex_);
    if (freePlaces_ == 0 || underWay_ == kMostUnderWay) return line_.push_back(std::move(work));
    --freePlaces_;
    ++underWay_;
    work->hasBegun = true;
  }
  begin(std::move(work));
}

void ImageLine::enterAgain(WorkPtr work) {
  {
    MutexLock lock(lineMutex_);
    if (freePlaces_ == 0) return line_.push_front(std::move(work));
    --freePlaces_;
  }
  begin(std::move(work));
}

/// A place is free: the next one's, unless too many are under way.
void ImageLine::leave() {
  WorkPtr next;
  {
    MutexLock lock(lineMutex_);
    const bool isForNone =
        line_.empty() || (!line_.front()->hasBegun && underWay_ == kMostUnderWay);
    if (isForNone) {
      ++freePlaces_;
      return;
    }
    next = std::move(line_.front());
    line_.pop_front();
    if (!std::exchange(next->hasBegun, true)) ++underWay_;
  }
  begin(std::move(next));
}

void ImageLine::end() {
  {
    MutexLock lock(lineMutex_);
    --underWay_;
  }
  leave();
}

void ImageLine::begin(WorkPtr work) {
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND),
                 [work = std::move(work)] { work->turn(); });
}

}  // namespace zaffo
