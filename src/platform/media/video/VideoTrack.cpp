// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/VideoTrack.h"

#include <utility>

#include "platform/media/SampleBuffers.h"

namespace zaffo::media {

namespace {

/// Pixels of a picture times the seconds that are decoded: about twenty milliseconds' work.
constexpr double kLongToDecode = 1280.0 * 720.0 / 4;

}  // namespace

VideoTrack::VideoTrack(std::shared_ptr<SampleSource> source, int trackID)
    : source_(std::move(source)), trackID_(trackID) {}

// Seeking

void VideoTrack::beginSeek(CMTime time, CMTime earliest, CMTime latest) {
  target_ = time;
  earliest_ = earliest;
  latest_ = latest;
  sought_ = hurryTo_ = leapTo_ = resumeAt_ = kCMTimeInvalid;
  preview_.reset();
  search_ = placeAt(time) ? Search::Undecided : Search::None;
}

Outcome VideoTrack::stepSeek(VideoFrame& frame) {
  switch (search_) {
    case Search::None:
      return Outcome::Error;
    case Search::Undecided:
      return decideSearch();
    case Search::NextSync:
      return stepToNextSync();
    case Search::Preview:
      return stepPreview();
    case Search::BehindSync:
      return stepBehindSync();
    case Search::Decoding:
      return stepDecoding(frame);
  }
  return Outcome::Error;
}

Outcome VideoTrack::decideSearch() {
  Sample sample;
  const Outcome outcome = read(sample);
  if (outcome == Outcome::End && readError_) return fail(readError_);
  if (outcome != Outcome::Ready) return outcome;
  const CMTime time = sample.presentation;
  const bool isWanted = sample.sync && !sample.decodeOnly && (time >= target_ || time >= earliest_);
  if (!isWanted && latest_ > target_) {
    passedNewStart_ = sample.isDiscontinuity;
    search_ = Search::NextSync;
    return Outcome::Working;
  }
  if (!isWanted && isFarBehind(sample)) return beginPreview(std::move(sample));
  search_ = isWanted && time > target_ ? Search::BehindSync : Search::Decoding;
  if (search_ == Search::BehindSync) {
    horizon_ = {};
    horizon_.pass(sample);
    lateSync_ = time;
  } else if (isWanted) {
    sought_ = time;
  } else if (sample.sync && target_ == kCMTimeZero) {
    sought_ = kCMTimeZero;
  }
  enqueue(std::move(sample));
  return Outcome::Working;
}

/// Reads on to the next sync sample: nothing before it needs to be decoded if it will do.
Outcome VideoTrack::stepToNextSync() {
  Sample sample;
  const Outcome outcome = read(sample);
  if (outcome == Outcome::Again) return outcome;
  if (outcome != Outcome::Ready) return searchAgain();
  passedNewStart_ = passedNewStart_ || sample.isDiscontinuity;
  const bool isBeyond = CMTIME_IS_NUMERIC(sample.decode) && sample.decode > latest_;
  const bool isSync = sample.sync && !sample.decodeOnly && sample.presentation > target_;
  if (isBeyond || (isSync && sample.presentation > latest_)) return searchAgain();
  if (!isSync) return Outcome::Working;
  sample.isDiscontinuity = passedNewStart_;
  sought_ = sample.presentation;
  search_ = Search::Decoding;
  enqueue(std::move(sample));
  return Outcome::Working;
}

/// Nothing is decoded until it is known whether the sync sample is that of the first frame.
Outcome VideoTrack::stepBehindSync() {
  if (hasEnded_ || horizon_.time() >= lateSync_) {
    sought_ = lateSync_;
    search_ = Search::Decoding;
    return Outcome::Working;
  }
  Sample sample;
  const Outcome outcome = read(sample);
  if (outcome == Outcome::End) return Outcome::Working;
  if (outcome != Outcome::Ready) return outcome;
  horizon_.pass(sample);
  const bool startsRun = sample.isDiscontinuity;
  const bool isEarlier = !sample.decodeOnly && sample.presentation < lateSync_;
  enqueue(std::move(sample));
  // A file may have any distance between decoding and showing; memory has an end.
  if (isEarlier || startsRun || !samples_.hasRoom(lateSync_)) search_ = Search::Decoding;
  return Outcome::Working;
}

/// Whether decoding from the sync sample up to the time takes long.
bool VideoTrack::isFarBehind(const Sample& sync) const {
  const AVCodecParameters& parameters = cursor_->codecParameters();
  const double pixels = static_cast<double>(parameters.width) * parameters.height;
  return sync.sync && CMTIME_IS_NUMERIC(sync.presentation) &&
         CMTimeGetSeconds(target_ - sync.presentation) * pixels >= kLongToDecode;
}

Outcome VideoTrack::beginPreview(Sample sync) {
  sync.decodeOnly = false;  // a segment may begin behind it
  sought_ = sync.presentation;
  search_ = Search::Preview;
  enqueue(std::move(sync));
  return Outcome::Working;
}

/// Nothing is made of a sync sample that does not give its frame by itself.
Outcome VideoTrack::stepPreview() {
  SampleQueueDecoder::Picture picture;
  const Outcome outcome =
      decoder_.step({.now = sought_, .ahead = true, .sought = sought_}, picture);
  if (outcome == Outcome::Working) return outcome;
  if (outcome == Outcome::Ready) preview_ = std::move(picture.frame);
  return searchAgain();
}

Outcome VideoTrack::stepDecoding(VideoFrame& frame) {
  const bool isKnown = CMTIME_IS_VALID(sought_);
  const Outcome outcome =
      step({.now = isKnown ? sought_ : target_, .ahead = true, .sought = sought_}, frame);
  if (outcome == Outcome::Working || outcome == Outcome::Again) return outcome;
  // The one that would have done is damaged.
  const bool isIt = outcome == Outcome::Ready && frame.presentation == sought_;
  if (isKnown && !isIt) return searchAgain();
  if (outcome != Outcome::Ready) return outcome;
  // Where what was sent is too much to be kept, the cursor goes back for what follows.
  preview_.reset();
  if (decoder_.isSpent() && !samples_.keepsSent()) resumeAt_ = frame.presentation;
  search_ = Search::None;
  return Outcome::Ready;
}

/// Searches from the sync sample on once more, up to the first frame after the time.
Outcome VideoTrack::searchAgain() {
  sought_ = kCMTimeInvalid;
  search_ = placeAt(target_) ? Search::Decoding : Search::None;
  return search_ == Search::None ? Outcome::Error : Outcome::Working;
}

// Going on

Outcome VideoTrack::stepNext(VideoFrame& frame) {
  if (CMTIME_IS_VALID(resumeAt_)) {
    const CMTime shown = std::exchange(resumeAt_, kCMTimeInvalid);
    if (!placeAt(shown)) return Outcome::Error;
    decoder_.goOnAfter(shown);
  }
  if (readsOn()) {
    Sample sample;
    if (read(sample) == Outcome::Ready) {
      enqueue(std::move(sample));
      return Outcome::Working;
    }
    leapTo_ = kCMTimeInvalid;
  }
  // A late frame is better than none.
  const CMTime now = CMTIME_IS_VALID(hurryTo_) ? hurryTo_ : kCMTimeNegativeInfinity;
  return step({.now = now, .ahead = true, .overdue = true, .hurryTo = hurryTo_}, frame);
}

/// Whether what lies up to the time to leap to was not read yet, and there is room for it.
bool VideoTrack::readsOn() const {
  return CMTIME_IS_VALID(leapTo_) && !hasEnded_ && !samples_.reaches(leapTo_) &&
         samples_.hasRoom(leapTo_);
}

void VideoTrack::resumeAfter(CMTime shown) {
  (void)samples_.flush();
  decoder_.begin();
  search_ = Search::None;
  hurryTo_ = leapTo_ = kCMTimeInvalid;
  resumeAt_ = shown;
}

// Decoding

Outcome VideoTrack::step(SampleQueueDecoder::Demand demand, VideoFrame& frame) {
  demand.noneComing = demand.haveAllCome = hasEnded_;
  SampleQueueDecoder::Picture picture;
  switch (decoder_.step(demand, picture)) {
    case Outcome::Ready:
      frame = std::move(picture.frame);
      decoder_.goOnAfter(frame.presentation);
      decodeOnlyRun_.gave(frame.presentation);
      if (!decoder_.isSpent()) samples_.forgetSent(decoder_.generation());
      error_ = nullptr;
      return Outcome::Ready;
    case Outcome::Again:
      return feed();
    case Outcome::Error:
      return fail(readError_ ? readError_ : decoder_.error());
    case Outcome::Working:
    case Outcome::End:
      break;
  }
  return Outcome::Working;
}

/// The decoder has no sample left.
Outcome VideoTrack::feed() {
  if (hasEnded_) return readError_ ? fail(readError_) : Outcome::End;
  Sample sample;
  const Outcome outcome = read(sample);
  if (outcome == Outcome::End) return Outcome::Working;  // the decoder is to be drained
  if (outcome != Outcome::Ready) return outcome;
  enqueue(std::move(sample));
  return Outcome::Working;
}

/// End when there is none any more, for whatever reason.
Outcome VideoTrack::read(Sample& sample) {
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Ready || outcome == Outcome::Again) return outcome;
  if (outcome == Outcome::Error) readError_ = cursor_->error();
  hasEnded_ = true;
  return Outcome::End;
}

void VideoTrack::enqueue(Sample sample) {
  // Behind a new start the cursor tells the parameters of what begins there.
  if (!format_ || sample.isDiscontinuity)
    format_ = makeFormatDescription(cursor_->codecParameters());
  decodeOnlyRun_.sent(sample);
  (void)samples_.push({std::move(sample), format_});
}

/// Puts the cursor on the sync sample for `time` and forgets what was read before.
bool VideoTrack::placeAt(CMTime time) {
  (void)samples_.flush();
  decoder_.begin();
  decodeOnlyRun_.leave();
  format_.reset();
  error_ = readError_ = nullptr;
  hasEnded_ = false;
  if (!cursor_ && !openCursor()) return false;
  if (cursor_->seek(time)) return true;
  error_ = cursor_->error();
  return false;
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

Outcome VideoTrack::fail(NSErrorPtr error) {
  error_ = std::move(error);
  return Outcome::Error;
}

}  // namespace zaffo::media
