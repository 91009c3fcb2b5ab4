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

Outcome VideoTrack::stepSeek(VideoFrame& frame) {
  switch (search_) {
    case Search::None:
      return Outcome::Error;
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
  return Outcome::Error;
}

Outcome VideoTrack::decideSearch() {
  Sample sample;
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Error) return fail(cursor_->error());
  if (outcome != Outcome::Ready) return outcome;
  const bool wanted = sample.sync && !sample.decodeOnly &&
                      (sample.presentation >= target_ || sample.presentation >= earliest_);
  if (sample.presentation <= target_) latestSentUpTo_ = sample.presentation;
  if (wanted && sample.presentation > target_) {
    search_ = Search::BehindSync;
    horizon_ = {};
    horizon_.pass(sample);
    lateSync_ = std::move(sample);
    return Outcome::Working;
  }
  if (wanted) return drainSync(sample);
  passedNewStart_ = sample.isDiscontinuity;
  search_ = latest_ > target_ ? Search::NextSync : Search::Exact;
  if (search_ == Search::NextSync) return Outcome::Working;
  skipUpTo_ = target_;
  send(sample);
  return Outcome::Working;
}

/// Reads on to the next sync sample: nothing before it needs to be decoded if it will do.
Outcome VideoTrack::stepToNextSync() {
  Sample sample;
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Again) return Outcome::Again;
  if (outcome != Outcome::Ready) return searchAgain();
  passedNewStart_ = passedNewStart_ || sample.isDiscontinuity;
  const bool isBeyond = CMTIME_IS_NUMERIC(sample.decode) && sample.decode > latest_;
  const bool isSync = sample.sync && !sample.decodeOnly && sample.presentation > target_;
  if (isBeyond || (isSync && sample.presentation > latest_)) return searchAgain();
  if (!isSync) return Outcome::Working;
  sample.isDiscontinuity = passedNewStart_;
  return drainSync(sample);
}

/// Nothing is decoded until it is known whether the sync sample is that of the first frame.
Outcome VideoTrack::stepBehindSync() {
  Sample sample;
  Outcome outcome = Outcome::End;
  if (horizon_.time() < lateSync_.presentation) outcome = cursor_->next(sample);
  if (outcome == Outcome::Again) return Outcome::Again;
  if (outcome != Outcome::Ready) return drainSync(std::exchange(lateSync_, {}));
  horizon_.pass(sample);
  const bool isEarlier = !sample.decodeOnly && sample.presentation < lateSync_.presentation;
  // Behind a new start the cursor tells the parameters of what begins there.
  if (!isEarlier && !sample.isDiscontinuity) return Outcome::Working;
  lateSync_ = {};
  return searchAgain();
}

Outcome VideoTrack::drainSync(const Sample& sample) {
  search_ = Search::DrainedSync;
  send(sample);
  decoder_->drain();
  draining_ = true;
  return Outcome::Working;
}

Outcome VideoTrack::stepDrainedSync(VideoFrame& frame) {
  if (decoder_->receive(frame) == Outcome::Ready) {
    search_ = Search::None;
    resumeAfter(frame);
    return Outcome::Ready;
  }
  // One sample was not enough: a damaged one, or one that leans on what follows.
  return searchAgain();
}

/// Searches from the sync sample on once more, and waits for the frames that confirm the one found.
Outcome VideoTrack::searchAgain() {
  search_ = Search::Exact;
  drainsAtTarget_ = false;
  candidate_ = {};
  if (!prepareDecoderAt(target_)) return Outcome::Error;
  skipUpTo_ = target_;
  return Outcome::Working;
}

Outcome VideoTrack::stepExact(VideoFrame& frame) {
  VideoFrame decoded;
  switch (decoder_->receive(decoded)) {
    case Outcome::Ready:
      gaveFrame_ = true;
      if (drainedAtTarget_ && decoded.presentation == target_) {
        frame = std::move(decoded);
        resumeAfter(frame);
        return Outcome::Ready;
      }
      if (decoded.presentation <= target_) {
        candidate_ = std::move(decoded);
        return Outcome::Working;
      }
      if (candidate_.buffer) {
        lookahead_ = std::move(decoded);
        frame = std::move(candidate_);
      } else {
        frame = std::move(decoded);
      }
      break;
    case Outcome::End:
      if (drainedAtTarget_) return searchAgain();
      if (!candidate_.buffer) {
        if (readError_) return fail(readError_);
        return error_ ? Outcome::Error : Outcome::End;
      }
      frame = std::move(candidate_);
      break;
    case Outcome::Error:
      error_ = decoder_->error();
      return Outcome::Working;
    case Outcome::Working:
    case Outcome::Again:
      return feed();
  }
  search_ = Search::None;
  skipUpTo_ = kCMTimeInvalid;
  dropThrough_ = frame.presentation;
  restartAt_ = frame.presentation;
  error_ = nullptr;
  return Outcome::Ready;
}

Outcome VideoTrack::stepNext(VideoFrame& frame) {
  if (lookahead_) {
    frame = std::move(*lookahead_);
    lookahead_.reset();
    dropThrough_ = restartAt_ = frame.presentation;
    return Outcome::Ready;
  }
  if (needsRestart_) {
    needsRestart_ = false;
    if (!prepareDecoderAt(restartAt_)) return Outcome::Error;
    skipUpTo_ = dropThrough_;
  }
  switch (decoder_->receive(frame)) {
    case Outcome::Ready:
      gaveFrame_ = true;
      if (CMTIME_IS_VALID(dropThrough_) && frame.presentation <= dropThrough_) {
        return Outcome::Working;
      }
      dropThrough_ = restartAt_ = frame.presentation;
      decodeOnlyRun_.gave(frame.presentation);
      error_ = nullptr;
      return Outcome::Ready;
    case Outcome::End:
      if (readError_) return fail(readError_);
      return error_ && !gaveFrame_ ? Outcome::Error : Outcome::End;
    case Outcome::Error:
      error_ = decoder_->error();
      return Outcome::Working;
    case Outcome::Working:
    case Outcome::Again:
      if (CMTIME_IS_VALID(hurryTo_)) skipUpTo_ = hurryTo_;
      return feed();
  }
  return Outcome::Error;
}

/// Sends one sample, or starts draining at the end of the track.
Outcome VideoTrack::feed() {
  if (draining_) return Outcome::Working;
  Sample sample;
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Again) return outcome;
  if (outcome != Outcome::Ready) {
    if (outcome == Outcome::Error) readError_ = cursor_->error();
    decoder_->drain();
    draining_ = true;
    return Outcome::Working;
  }
  decoder_->setSkipsUnreferencedFrames(maySkip(sample));
  send(sample);
  if (isSoughtFirstFrame(sample)) {
    decoder_->drain();
    draining_ = drainedAtTarget_ = true;
  }
  return Outcome::Working;
}

void VideoTrack::send(const Sample& sample) {
  if (sample.isDiscontinuity && !decoder_->adoptParameters(cursor_->codecParameters())) {
    error_ = decoder_->error();
  }
  decodeOnlyRun_.sent(sample);
  if (decoder_->send(sample) == Outcome::Error) error_ = decoder_->error();
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

Outcome VideoTrack::fail(NSErrorPtr error) {
  error_ = std::move(error);
  return Outcome::Error;
}

}  // namespace zaffo::media
