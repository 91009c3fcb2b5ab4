#include "platform/media/video/VideoTrack.h"

#include <utility>

namespace zaffo::media {
namespace {

// So many samples are decoded once more without anybody noticing.
constexpr int kCheapToRepeat = 16;

}  // namespace

VideoTrack::VideoTrack(std::shared_ptr<SampleSource> source, int trackID)
    : source_(std::move(source)), trackID_(trackID) {}

void VideoTrack::beginSeek(CMTime time, CMTime earliest, CMTime latest) {
  target_ = time;
  earliest_ = earliest;
  latest_ = latest;
  candidate_ = {};
  lookahead_.reset();
  dropThrough_ = kCMTimeInvalid;
  hurryTo_ = kCMTimeInvalid;
  needsRestart_ = false;
  search_ = Search::Undecided;
  drainsAtTarget_ = target_ == kCMTimeZero;
  error_ = nullptr;
  if (!prepareDecoderAt(time)) search_ = Search::None;
}

TrackStep VideoTrack::stepSeek(VideoFrame& frame) {
  switch (search_) {
    case Search::None:
      return TrackStep::Error;
    case Search::Undecided:
      return decideSearch();
    case Search::NextSync:
      return stepToNextSync();
    case Search::BehindSync:
      return stepBehindSync();
    case Search::DrainedSync:
      return stepDrainedSync(frame);
    case Search::Exact:
      return stepExact(frame);
  }
  return TrackStep::Error;
}

TrackStep VideoTrack::decideSearch() {
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
  const bool wanted = sample.sync && !sample.decodeOnly &&
                      (sample.presentation >= target_ || sample.presentation >= earliest_);
  if (sample.presentation <= target_) latestSentUpTo_ = sample.presentation;
  if (wanted && sample.presentation > target_) {
    search_ = Search::BehindSync;
    horizon_ = {};
    horizon_.pass(sample);
    lateSync_ = std::move(sample);
    return TrackStep::Working;
  }
  if (wanted) return drainSync(sample);
  passedNewStart_ = sample.isDiscontinuity;
  search_ = latest_ > target_ ? Search::NextSync : Search::Exact;
  if (search_ == Search::NextSync) return TrackStep::Working;
  skipUpTo_ = target_;
  send(sample);
  return TrackStep::Working;
}

/// Reads on to the next sync sample: nothing before it needs to be decoded if it will do.
TrackStep VideoTrack::stepToNextSync() {
  Sample sample;
  const ReadOutcome outcome = cursor_->next(sample);
  if (outcome == ReadOutcome::Again) return TrackStep::Again;
  if (outcome != ReadOutcome::Sample) return searchAgain();
  passedNewStart_ = passedNewStart_ || sample.isDiscontinuity;
  const bool isBeyond = CMTIME_IS_NUMERIC(sample.decode) && sample.decode > latest_;
  const bool isSync = sample.sync && !sample.decodeOnly && sample.presentation > target_;
  if (isBeyond || (isSync && sample.presentation > latest_)) return searchAgain();
  if (!isSync) return TrackStep::Working;
  sample.isDiscontinuity = passedNewStart_;
  return drainSync(sample);
}

/// Nothing is decoded until it is known whether the sync sample is that of the first frame.
TrackStep VideoTrack::stepBehindSync() {
  Sample sample;
  ReadOutcome outcome = ReadOutcome::End;
  if (horizon_.time() < lateSync_.presentation) outcome = cursor_->next(sample);
  if (outcome == ReadOutcome::Again) return TrackStep::Again;
  if (outcome != ReadOutcome::Sample) return drainSync(std::exchange(lateSync_, {}));
  horizon_.pass(sample);
  const bool isEarlier = !sample.decodeOnly && sample.presentation < lateSync_.presentation;
  // Behind a new start the cursor tells the parameters of what begins there.
  if (!isEarlier && !sample.isDiscontinuity) return TrackStep::Working;
  lateSync_ = {};
  return searchAgain();
}

TrackStep VideoTrack::drainSync(const Sample& sample) {
  search_ = Search::DrainedSync;
  send(sample);
  decoder_->drain();
  draining_ = true;
  return TrackStep::Working;
}

TrackStep VideoTrack::stepDrainedSync(VideoFrame& frame) {
  if (decoder_->receive(frame) == DecodeOutcome::Ok) {
    search_ = Search::None;
    resumeAfter(frame);
    return TrackStep::Frame;
  }
  // One sample was not enough: a damaged one, or one that leans on what follows.
  return searchAgain();
}

/// Searches from the sync sample on once more, and waits for the frames that confirm the one found.
TrackStep VideoTrack::searchAgain() {
  search_ = Search::Exact;
  drainsAtTarget_ = false;
  candidate_ = {};
  if (!prepareDecoderAt(target_)) return TrackStep::Error;
  skipUpTo_ = target_;
  return TrackStep::Working;
}

TrackStep VideoTrack::stepExact(VideoFrame& frame) {
  VideoFrame decoded;
  switch (decoder_->receive(decoded)) {
    case DecodeOutcome::Ok:
      gaveFrame_ = true;
      if (drainedAtTarget_ && decoded.presentation == target_) {
        frame = std::move(decoded);
        resumeAfter(frame);
        return TrackStep::Frame;
      }
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
      if (drainedAtTarget_) return searchAgain();
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
      decodeOnlyRun_.gave(frame.presentation);
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
  send(sample);
  if (isSoughtFirstFrame(sample)) {
    decoder_->drain();
    draining_ = drainedAtTarget_ = true;
  }
  return TrackStep::Working;
}

void VideoTrack::send(const Sample& sample) {
  if (sample.isDiscontinuity && !decoder_->adoptParameters(cursor_->codecParameters())) {
    error_ = decoder_->error();
  }
  decodeOnlyRun_.sent(sample);
  if (decoder_->send(sample) == DecodeOutcome::Error) error_ = decoder_->error();
  ++sentSincePrepared_;
}

/// Whether `sample` is, for sure, that of the frame at the beginning, which others needed before
/// it.
bool VideoTrack::isSoughtFirstFrame(const Sample& sample) const {
  return search_ == Search::Exact && drainsAtTarget_ && !sample.decodeOnly &&
         sample.presentation == target_ && sentSincePrepared_ <= kCheapToRepeat;
}

/// Whether the frame of `sample` can be left out if no other refers to it.
bool VideoTrack::maySkip(const Sample& sample) {
  if (sample.decodeOnly) return true;
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
  auto cursor = source_->openCursor(trackID_);
  if (!cursor) {
    error_ = cursor.error();
    return false;
  }
  cursor_ = *std::move(cursor);
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
  if (!openOrResetDecoder()) return false;
  decoder_->setSkipsUnreferencedFrames(false);
  draining_ = drainedAtTarget_ = false;
  sentSincePrepared_ = 0;
  decodeOnlyRun_.leave();
  gaveFrame_ = false;
  readError_ = nullptr;
  skipUpTo_ = kCMTimeInvalid;
  latestSentUpTo_ = kCMTimeInvalid;
  return true;
}

bool VideoTrack::openOrResetDecoder() {
  if (decoder_) {
    decoder_->reset();
    if (decoder_->adoptParameters(cursor_->codecParameters())) return true;
    error_ = decoder_->error();
    return false;
  }
  auto decoder = VideoDecoder::open(cursor_->codecParameters());
  if (!decoder) {
    error_ = decoder.error();
    return false;
  }
  decoder_ = *std::move(decoder);
  return true;
}

TrackStep VideoTrack::fail(NSErrorPtr error) {
  error_ = std::move(error);
  return TrackStep::Error;
}

}  // namespace zaffo::media
