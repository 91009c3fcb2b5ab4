// Going to a place, and getting ready to play from there: first the picture, then the sound.

#include <utility>

#include "platform/dispatch/Confinement.h"
#include "platform/foundation/AVError.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/playback/Playback.h"

namespace zaffo::media {

/// Whether something newer waits for the queue to become free.
bool Playback::superseded() const {
  return closed_ || newestSeek_ > handledSeek_;
}

void Playback::beginSeek(Seek seek) {
  assertCurrent(*queue_);
  completeSeek(false);
  seek_ = std::move(seek);
  handledSeek_ = seek_->generation;
  if (superseded()) return completeSeek(false);
  if (running_) pause();
  ready_ = false;
  soundIsPrefilled_ = false;
  videoEnded_ = false;
  atEnd_ = false;
  error_ = nullptr;
  if (showFirstFrameFor(*seek_)) return;
  if (!video_) return finishSeek({});
  frames_->dropQueued();
  video_->setReadyHandler([weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->post(&Playback::continueSeek);
  });
  video_->beginSeek(seek_->time, seek_->earliest, seek_->latest);
  continueSeek();
}

/// The first frame was kept: a rewind needs no decoder.
bool Playback::showFirstFrameFor(const Seek& seek) {
  if (!firstFrame_ || seek.time > CMTimeMaximum(firstFrame_->presentation, kCMTimeZero)) {
    return false;
  }
  video_->resumeAfter(*firstFrame_);
  finishSeek(*firstFrame_);
  return true;
}

void Playback::continueSeek() {
  assertCurrent(*queue_);
  if (!seek_) return pump();
  VideoFrame frame;
  while (!superseded()) {
    switch (video_->stepSeek(frame)) {
      case Outcome::Working:
        break;
      case Outcome::Again:
        return;
      case Outcome::Ready:
        return finishSeek(std::move(frame));
      case Outcome::End:
      case Outcome::Error:
        return failSeek();
    }
  }
  completeSeek(false);
}

void Playback::finishSeek(VideoFrame frame) {
  const bool isWithin =
      frame.buffer && frame.presentation >= seek_->earliest && frame.presentation <= seek_->latest;
  const CMTime position = isWithin ? CMTimeMaximum(frame.presentation, kCMTimeZero) : seek_->time;
  if (frame.buffer) {
    videoEnd_ = endOf(frame);
    if (position == kCMTimeZero && !firstFrame_) firstFrame_ = frame;
  }
  setPosition(position);
  timebase_->setTime(position);
  frames_->show(std::move(frame));
  if (events_.pictureChanged) events_.pictureChanged();
  ready_ = true;
  completeSeek(true);
  settle();
}

void Playback::failSeek() {
  const NSErrorPtr error = video_->error();
  completeSeek(false);
  fail(error ? error
             : makeError(AVErrorDecodeFailed, "The video has no picture that can be decoded."));
}

void Playback::completeSeek(bool finished) {
  if (!seek_) return;
  const Completion completion = std::move(seek_->completion);
  seek_.reset();
  if (completion) completion(finished);
}

/// After the picture, the sound: then prerolls are done, and playing goes on or all is let go of.
void Playback::settle() {
  assertCurrent(*queue_);
  if (!ready_ || seek_) return;
  if (sound_ && !soundIsPrefilled_ && !sound_->prefill(timebase_->time())) return;
  if (sound_ && sound_->failed() && !video_) {
    return fail(makeError(AVErrorDecodeFailed, "The sound cannot be decoded."));
  }
  soundIsPrefilled_ = true;
  completePrerolls(true);
  if (rate_ > 0) {
    if (!running_) startRunning();
  } else {
    collapse();
  }
}

}  // namespace zaffo::media
