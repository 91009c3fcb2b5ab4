#include "platform/media/VideoTrack.h"

#include <utility>

namespace zaffo::media {

VideoTrack::VideoTrack(std::shared_ptr<SampleSource> source, int trackID)
    : source_(std::move(source)), trackID_(trackID) {}

void VideoTrack::beginSeek(CMTime time, CMTime earliest) {
  target_ = time;
  earliest_ = earliest;
  candidate_ = {};
  lookahead_.reset();
  dropThrough_ = kCMTimeInvalid;
  hurryTo_ = kCMTimeInvalid;
  needsRestart_ = false;
  search_ = Search::Undecided;
  error_ = nullptr;
  if (!prepareDecoderAt(time)) search_ = Search::None;
}

TrackStep VideoTrack::stepSeek(VideoFrame& frame) {
  switch (search_) {
    case Search::None:
      return TrackStep::Error;
    case Search::Undecided:
    case Search::DrainedSync:
      return stepDrainedSync(frame);
    case Search::Exact:
      return stepExact(frame);
  }
  return TrackStep::Error;
}

TrackStep VideoTrack::stepDrainedSync(VideoFrame& frame) {
  if (search_ == Search::Undecided) {
    Sample sample;
    switch (cursor_->next(sample)) {
      case ReadOutcome::Again:
        return TrackStep::Again;
      case ReadOutcome::Error:
        return fail(cursor_->error());
      case ReadOutcome::End:
        return TrackStep::End;
      case ReadOutcome::Sample:
        break;
    }
    const bool wanted = sample.sync && sample.shown &&
                        (sample.presentation >= target_ || sample.presentation >= earliest_);
    search_ = wanted ? Search::DrainedSync : Search::Exact;
    if (!wanted) skipUpTo_ = target_;
    if (sample.presentation <= target_) latestSentUpTo_ = sample.presentation;
    if (decoder_->send(sample) == DecodeOutcome::Error) error_ = decoder_->error();
    if (!wanted) return TrackStep::Working;
    decoder_->drain();
    draining_ = true;
  }
  if (decoder_->receive(frame) == DecodeOutcome::Ok) {
    search_ = Search::None;
    resumeAfter(frame);
    return TrackStep::Frame;
  }
  // One sample was not enough: a damaged one, or one that leans on what follows.
  search_ = Search::Exact;
  if (!prepareDecoderAt(target_)) return TrackStep::Error;
  skipUpTo_ = target_;
  return TrackStep::Working;
}

TrackStep VideoTrack::stepExact(VideoFrame& frame) {
  VideoFrame decoded;
  switch (decoder_->receive(decoded)) {
    case DecodeOutcome::Ok:
      gaveFrame_ = true;
      if (decoded.presentation <= target_) {
        candidate_ = std::move(decoded);
        return TrackStep::Working;
      }
      if (candidate_.buffer) {
        lookahead_ = std::move(decoded);
        frame = std::move(candidate_);
      } else {
        frame = std::move(decoded);
      }
      break;
    case DecodeOutcome::End:
      if (!candidate_.buffer) {
        if (readError_) return fail(readError_);
        return error_ ? TrackStep::Error : TrackStep::End;
      }
      frame = std::move(candidate_);
      break;
    case DecodeOutcome::Error:
      error_ = decoder_->error();
      return TrackStep::Working;
    case DecodeOutcome::Again:
      return feed();
  }
  search_ = Search::None;
  skipUpTo_ = kCMTimeInvalid;
  dropThrough_ = frame.presentation;
  restartAt_ = frame.presentation;
  error_ = nullptr;
  return TrackStep::Frame;
}

TrackStep VideoTrack::stepNext(VideoFrame& frame) {
  if (lookahead_) {
    frame = std::move(*lookahead_);
    lookahead_.reset();
    dropThrough_ = restartAt_ = frame.presentation;
    return TrackStep::Frame;
  }
  if (needsRestart_) {
    needsRestart_ = false;
    if (!prepareDecoderAt(restartAt_)) return TrackStep::Error;
    skipUpTo_ = dropThrough_;
  }
  switch (decoder_->receive(frame)) {
    case DecodeOutcome::Ok:
      gaveFrame_ = true;
      if (CMTIME_IS_VALID(dropThrough_) && frame.presentation <= dropThrough_) {
        return TrackStep::Working;
      }
      dropThrough_ = restartAt_ = frame.presentation;
      error_ = nullptr;
      return TrackStep::Frame;
    case DecodeOutcome::End:
      if (readError_) return fail(readError_);
      return error_ && !gaveFrame_ ? TrackStep::Error : TrackStep::End;
    case DecodeOutcome::Error:
      error_ = decoder_->error();
      return TrackStep::Working;
    case DecodeOutcome::Again:
      if (CMTIME_IS_VALID(hurryTo_)) skipUpTo_ = hurryTo_;
      return feed();
  }
  return TrackStep::Error;
}

/// Sends one sample, or starts draining at the end of the track.
TrackStep VideoTrack::feed() {
  if (draining_) return TrackStep::Working;
  Sample sample;
  switch (cursor_->next(sample)) {
    case ReadOutcome::Again:
      return TrackStep::Again;
    case ReadOutcome::Error:
      readError_ = cursor_->error();
      [[fallthrough]];
    case ReadOutcome::End:
      decoder_->drain();
      draining_ = true;
      return TrackStep::Working;
    case ReadOutcome::Sample:
      break;
  }
  decoder_->setSkipsUnreferencedFrames(maySkip(sample));
  if (decoder_->send(sample) == DecodeOutcome::Error) error_ = decoder_->error();
  return TrackStep::Working;
}

/// Whether the frame of `sample` can be left out if no other refers to it.
bool VideoTrack::maySkip(const Sample& sample) {
  if (CMTIME_IS_INVALID(skipUpTo_) || sample.presentation > skipUpTo_) return false;
  if (search_ != Search::Exact) return true;
  // The frame sought is the last one that is not after the time: not one for which a later such
  // frame has been sent already.
  const bool surpassed = CMTIME_IS_VALID(latestSentUpTo_) && sample.presentation < latestSentUpTo_;
  if (!surpassed) latestSentUpTo_ = sample.presentation;
  return surpassed;
}

void VideoTrack::releaseDecoderIfRebuildable() {
  if (needsRestart_) decoder_.reset();
}

void VideoTrack::resumeAfter(const VideoFrame& frame) {
  search_ = Search::None;
  lookahead_.reset();
  hurryTo_ = kCMTimeInvalid;
  needsRestart_ = true;
  restartAt_ = dropThrough_ = frame.presentation;
}

bool VideoTrack::openCursor() {
  NSErrorPtr error;
  cursor_ = source_->openCursor(trackID_, &error);
  if (!cursor_) {
    error_ = error;
    return false;
  }
  if (readyHandler_) cursor_->setReadyHandler(readyHandler_);
  return true;
}

/// Puts the cursor on the sync sample for `time` and the decoder at its beginning.
bool VideoTrack::prepareDecoderAt(CMTime time) {
  if (!cursor_ && !openCursor()) return false;
  if (!cursor_->seek(time)) {
    error_ = cursor_->error();
    return false;
  }
  if (decoder_) {
    decoder_->reset();
  } else {
    NSErrorPtr error;
    decoder_ = VideoDecoder::open(cursor_->codecParameters(), &error);
    if (!decoder_) {
      error_ = error;
      return false;
    }
  }
  decoder_->setSkipsUnreferencedFrames(false);
  draining_ = false;
  gaveFrame_ = false;
  readError_ = nullptr;
  skipUpTo_ = kCMTimeInvalid;
  latestSentUpTo_ = kCMTimeInvalid;
  return true;
}

TrackStep VideoTrack::fail(NSErrorPtr error) {
  error_ = std::move(error);
  return TrackStep::Error;
}

}  // namespace zaffo::media
