// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/SampleQueueDecoder.h"

#include <algorithm>
#include <span>
#include <utility>

#include "platform/RecentTimes.h"
#include "platform/TimeSource.h"
#include "platform/foundation/AVError.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/SampleBuffers.h"

namespace zaffo::media {

namespace {

/// As many samples as this that are to be shown, without a single picture, are no video. Those that
/// are only decoded, for others to refer to, may be any number.
constexpr std::size_t kMostUnanswered = 300;
/// What is decoded again within some twenty milliseconds.
constexpr int64_t kCheapPixels = int64_t{16} << 20;
/// So many samples are decoded once more without anybody noticing.
constexpr std::size_t kCheapToRepeat = 16;
/// No decoder holds back as many frames; what is older than that was damaged.
constexpr std::size_t kMostPending = 64;

CMTime laterOf(CMTime a, CMTime b) {
  if (CMTIME_IS_INVALID(a)) return b;
  return CMTIME_IS_INVALID(b) ? a : CMTimeMaximum(a, b);
}

bool isAfter(CMTime time, CMTime passed) {
  return CMTIME_IS_INVALID(passed) || time > passed;
}

bool isBefore(CMTime time, CMTime bound) {
  return CMTIME_IS_VALID(bound) && time < bound;
}

bool isToShow(const Sample& sample) {
  return !sample.decodeOnly && CMTIME_IS_NUMERIC(sample.presentation);
}

bool hasSameBytes(const AVPacket& one, const AVPacket& other) {
  const auto bytesOf = [](const uint8_t* data, auto size) {
    return std::span(data, static_cast<std::size_t>(size));
  };
  const auto sideDataOf = [](const AVPacket& packet) {
    return std::span(packet.side_data, static_cast<std::size_t>(packet.side_data_elems));
  };
  const auto isSame = [&](const AVPacketSideData& a, const AVPacketSideData& b) {
    return a.type == b.type && std::ranges::equal(bytesOf(a.data, a.size), bytesOf(b.data, b.size));
  };
  return std::ranges::equal(bytesOf(one.data, one.size), bytesOf(other.data, other.size)) &&
         std::ranges::equal(sideDataOf(one), sideDataOf(other), isSame);
}

}  // namespace

void SampleQueueDecoder::begin() {
  generation_ = sampleQueue_.generation();
  restartDecoder();
  passed_ = atOnce_ = answered_ = kCMTimeInvalid;
  wantsFirst_ = false;
  gaveNothing_ = true;
  unanswered_ = 0;
  workTime_ = 0;
  error_ = nullptr;
}

/// Puts the decoder at its beginning, should there be one.
void SampleQueueDecoder::restartDecoder() {
  if (decoder_ && sent_ > 0) decoder_->reset();
  sent_ = sentToShow_ = 0;
  drain_ = Drain::None;
  isSpent_ = false;
  pending_.clear();
  lookahead_.reset();
  decodeOnlyRun_.leave();
}

void SampleQueueDecoder::close() {
  decoder_.reset();
  format_.reset();
  lookahead_.reset();
  first_.reset();
}

Outcome SampleQueueDecoder::step(const Demand& demand, Picture& picture) {
  const int64_t began = TimeSource::now();
  const Outcome outcome = work(demand, picture);
  workTime_ += TimeSource::now() - began;
  if (outcome == Outcome::Ready) noteTime(TimedWork::Decoding, std::exchange(workTime_, 0));
  return outcome;
}

Outcome SampleQueueDecoder::work(const Demand& demand, Picture& picture) {
  if (lookahead_) {
    picture = std::move(*lookahead_);
    lookahead_.reset();
    return Outcome::Ready;
  }
  const SampleQueue::Outlook outlook = sampleQueue_.outlook(generation_, passed_, demand.now);
  if (outlook.stale) return Outcome::Again;
  const CMTime inDecoder = dueInDecoder(demand.now);
  dueLater_ = outlook.due;
  due_ = laterOf(outlook.due, inDecoder);
  if (outlook.skippable > 0 && isAfter(outlook.due, inDecoder)) {
    restartDecoder();
    late_ += sampleQueue_.skip(generation_, outlook.skippable);
  }
  // While samples are on their way it is not known which of the frames that are due is the last.
  isComplete_ = outlook.complete;
  isSettled_ = isComplete_ || demand.noneComing;
  if (decoder_ && !isSpent_) {
    const CMTime earliest = laterOf(isSettled_ ? due_ : demand.now, passed_);
    decoder_->holdBackBefore(drain_ == Drain::AtOnce ? kCMTimeInvalid : earliest);
    VideoFrame frame;
    const Outcome outcome = decoder_->receive(frame);
    noteHeldBack();
    if (outcome == Outcome::Ready) return take(std::move(frame), demand, picture);
    if (outcome == Outcome::End) return finishDrain(picture);
    if (outcome == Outcome::Error) return noteError();
    const bool isLast = isSettled_ && (CMTIME_IS_INVALID(due_) || due_ <= decoder_->heldBack());
    if ((isLast || demand.overdue) && takeHeldBack(picture)) return Outcome::Ready;
  }
  return feed(demand, picture);
}

/// The latest presentation up to `now` of what was sent and did not come out.
CMTime SampleQueueDecoder::dueInDecoder(CMTime now) const {
  CMTime due = kCMTimeInvalid;
  for (const CMTime presentation : pending_) {
    if (presentation <= now && isAfter(presentation, passed_)) due = laterOf(due, presentation);
  }
  return due;
}

/// A frame came out of the decoder that is not too early.
Outcome SampleQueueDecoder::take(VideoFrame frame, const Demand& demand, Picture& picture) {
  cameOut(frame.presentation);
  if (drain_ == Drain::AtOnce) first_->frame = frame;
  const bool drained = drain_ == Drain::AtOnce || drain_ == Drain::Sought;
  const bool standsIn = isStandIn(frame.presentation, demand.now);
  if (drained) {
    drain_ = Drain::None;
    isSpent_ = true;
  }
  if (!isAfter(frame.presentation, passed_)) return Outcome::Working;
  const bool isAskedFor = drained || frame.presentation == atOnce_;
  const bool atOnce = std::exchange(wantsFirst_, false) || isAskedFor;
  // The one before it is the last that is due: what was expected there is damaged, or came when it
  // was not known yet to be the last, and it is the first that is to be shown.
  if (!isAskedFor && frame.presentation > demand.now && takeHeldBack(picture)) {
    passed_ = frame.presentation;
    lookahead_ = Picture{.frame = std::move(frame)};
    return Outcome::Ready;
  }
  if (decoder_) decoder_->forgetHeldBack();
  if (drained) answered_ = frame.presentation;
  if (!atOnce || !standsIn) passed_ = frame.presentation;
  picture = {std::move(frame), atOnce, atOnce && standsIn};
  return Outcome::Ready;
}

/// Whether a frame that is given before its time came out only because the decoder was drained, and
/// the samples of earlier frames may still come.
bool SampleQueueDecoder::isStandIn(CMTime presentation, CMTime now) const {
  return drain_ != Drain::None && drain_ != Drain::NewRun && !isComplete_ && presentation > now;
}

bool SampleQueueDecoder::takeHeldBack(Picture& picture) {
  const CMTime heldBack = decoder_->heldBack();
  if (CMTIME_IS_INVALID(heldBack) || !isAfter(heldBack, passed_)) return false;
  if (decoder_->receiveHeldBack(picture.frame) != Outcome::Ready) return false;
  picture.atOnce = picture.isStandIn = wantsFirst_ = false;
  passed_ = heldBack;
  return true;
}

bool SampleQueueDecoder::holdsLateFrame() const {
  return decoder_ && CMTIME_IS_VALID(decoder_->heldBack()) &&
         isAfter(decoder_->heldBack(), passed_);
}

void SampleQueueDecoder::noteHeldBack() {
  if (CMTIME_IS_VALID(decoder_->heldBack())) cameOut(decoder_->heldBack());
}

void SampleQueueDecoder::cameOut(CMTime presentation) {
  gaveNothing_ = false;
  decodeOnlyRun_.gave(presentation);
  std::erase_if(pending_, [presentation](CMTime each) { return each <= presentation; });
}

Outcome SampleQueueDecoder::noteError() {
  error_ = decoder_->error();
  return Outcome::Working;
}

/// Sends the next sample, if what is asked for needs it.
Outcome SampleQueueDecoder::feed(const Demand& demand, Picture& picture) {
  const QueuedSamplePtr next = sampleQueue_.next(generation_);
  if (isHopeless(demand, next != nullptr)) return failWithoutPicture();
  const bool asksAtOnce = wantsFirst_ || (next && isWantedAtOnce(*next)) ||
                          (CMTIME_IS_VALID(atOnce_) && isAfter(atOnce_, passed_));
  if (!demand.ahead && !asksAtOnce && CMTIME_IS_INVALID(due_)) return Outcome::End;
  const bool isTorn = isSpent_ && !pending_.empty();  // drained before everything came out
  if (!next && !(isTorn && demand.noneComing)) return feedNothing(demand);
  if (isSpent_) {
    // Even a sync sample may be followed by some that lean on what precedes it.
    restartDecoder();
    if ((isTorn || !next->sample.isDiscontinuity) && sampleQueue_.rewind(generation_)) {
      unanswered_ = 0;
      rewound_ = true;
      return Outcome::Working;
    }
    if (!next) return Outcome::Again;
  }
  if (!next->format) {
    error_ = makeError(AVErrorUnknown, "Out of memory.");
    return Outcome::Error;
  }
  const bool sameFormat = format_ == next->format || (format_ && hasFormatOf(*next));
  if (sent_ > 0 && (next->sample.isDiscontinuity || !sameFormat)) return drain(Drain::NewRun);
  if (!sameFormat) decoder_.reset();
  format_ = next->format;
  if (isDrainedAtOnce(*next) && isFirstAgain(*next)) {
    drain_ = Drain::AtOnce;
    VideoFrame again = first_->frame;
    // Whoever waits for another picture than before knows it by its buffer.
    again.buffer = std::make_shared<CVPixelBuffer>(*again.buffer);
    return take(std::move(again), demand, picture);
  }
  if (!decoder_ && !open()) return Outcome::Error;
  return send(next, demand);
}

/// There are no more samples. What the decoder still holds is all, if none is on its way.
Outcome SampleQueueDecoder::feedNothing(const Demand& demand) {
  if (demand.noneComing && holdsFrames()) return drain(Drain::End);
  return Outcome::Again;
}

bool SampleQueueDecoder::isWantedAtOnce(const QueuedSample& next) const {
  if (!next.displayImmediately) return false;
  if (next.sample.decodeOnly) return gaveNothing_;
  // One that stood for an earlier frame comes again at its time.
  return isAfter(next.sample.presentation, passed_) && next.sample.presentation != answered_;
}

/// Whether the frame of `next` is had from it alone, and at once.
bool SampleQueueDecoder::isDrainedAtOnce(const QueuedSample& next) const {
  return isWantedAtOnce(next) && !next.sample.decodeOnly && next.sample.sync && sent_ == 0 &&
         !wantsFirst_;
}

bool SampleQueueDecoder::isFirstAgain(const QueuedSample& next) const {
  if (!first_ || !first_->frame.buffer) return false;
  const QueuedSample& first = *first_->sample;
  return first.sample.presentation == next.sample.presentation &&
         (first.format == next.format || hasFormatOf(first)) &&
         hasSameBytes(*first.sample.packet, *next.sample.packet);
}

bool SampleQueueDecoder::keepsOtherThan(CMTime shown) const {
  return first_ && first_->sample->sample.presentation != shown;
}

bool SampleQueueDecoder::hasFormatOf(const QueuedSample& next) const {
  const CodecConfig* present = codecConfigOf(*format_);
  const CodecConfig* wanted = codecConfigOf(*next.format);
  return present && wanted && *present == *wanted;
}

bool SampleQueueDecoder::open() {
  const AVCodecParameters* parameters = codecParametersOf(*format_);
  if (!parameters) {
    error_ = makeError(AVErrorDecoderNotFound, "The samples are of no known format.");
    return false;
  }
  auto decoder = openDecoder_(*parameters);
  if (!decoder) {
    error_ = decoder.error();
    return false;
  }
  decoder_ = *std::move(decoder);
  return true;
}

Outcome SampleQueueDecoder::send(const QueuedSamplePtr& next, const Demand& demand) {
  const Sample& sample = next->sample;
  const bool atOnce = isWantedAtOnce(*next);
  const bool drainsAtOnce = isDrainedAtOnce(*next);
  const bool isLate =
      isBefore(sample.presentation, due_) || isBefore(sample.presentation, demand.hurryTo);
  const bool isNew = isToShow(sample) && isAfter(sample.presentation, passed_);
  const bool isWanted = isNew && !isLate;
  decoder_->setSkipsUnreferencedFrames(!isWanted && !atOnce && !wantsFirst_);
  const Outcome sent = decoder_->send(sample);
  if (sent == Outcome::Again) return Outcome::Working;  // once more when its frame is out
  if (sent == Outcome::Error) error_ = decoder_->error();
  ++sent_;
  if (isToShow(sample)) ++sentToShow_;
  decodeOnlyRun_.sent(sample);
  if (drainsAtOnce) {
    first_ = First{next, {}};
    return drain(Drain::AtOnce);
  }
  sampleQueue_.markSent(generation_);
  if (atOnce && gaveNothing_) wantsFirst_ = true;
  if (atOnce && !gaveNothing_) atOnce_ = sample.presentation;
  if (isWanted) pending_.push_back(sample.presentation);
  if (pending_.size() > kMostPending) pending_.erase(pending_.begin());
  if (isNew && isLate) ++late_;
  if (gaveNothing_ && isToShow(sample)) ++unanswered_;
  return isSought(sample, demand) ? drain(Drain::Sought) : Outcome::Working;
}

/// Whether `sample` is, for sure, that of the frame that is sought.
bool SampleQueueDecoder::isSought(const Sample& sample, const Demand& demand) const {
  return CMTIME_IS_VALID(demand.sought) && sample.presentation == demand.sought &&
         !sample.decodeOnly && sent_ <= kCheapToRepeat && !wantsFirst_;
}

Outcome SampleQueueDecoder::drain(Drain reason) {
  decoder_->drain();
  drain_ = reason;
  return Outcome::Working;
}

/// Everything came out of the decoder.
Outcome SampleQueueDecoder::finishDrain(Picture& picture) {
  pending_.clear();
  const Drain reason = std::exchange(drain_, Drain::None);
  if (reason == Drain::AtOnce || reason == Drain::Sought) {
    // What was sent was not enough: it is damaged, or leans on what follows.
    wantsFirst_ = true;
    first_.reset();
    restartDecoder();
    if (reason == Drain::Sought) (void)sampleQueue_.rewind(generation_);
    return Outcome::Working;
  }
  const bool isLast = CMTIME_IS_INVALID(dueLater_);
  const bool gives = isLast && takeHeldBack(picture);
  if (reason == Drain::NewRun) restartDecoder();
  if (reason == Drain::End) isSpent_ = true;
  return gives ? Outcome::Ready : Outcome::Working;
}

/// Whether there is no picture where there should be: enough was tried, or all there is.
bool SampleQueueDecoder::isHopeless(const Demand& demand, bool hasNext) const {
  if (!gaveNothing_ || unanswered_ == 0) return false;
  return unanswered_ >= kMostUnanswered || (demand.haveAllCome && !hasNext && isSpent_);
}

Outcome SampleQueueDecoder::failWithoutPicture() {
  if (!error_) {
    error_ = makeError(AVErrorDecodeFailed, "The video has no picture that can be decoded.");
  }
  return Outcome::Error;
}

bool SampleQueueDecoder::goBackTo(CMTime time) {
  if (!sampleQueue_.rewindTo(generation_, time)) return false;
  restartDecoder();
  passed_ = kCMTimeInvalid;
  return true;
}

bool SampleQueueDecoder::letGoIfCheap(CMTime shown) {
  if (sampleQueue_.pixelsToDecodeAgain() <= kCheapPixels && letGo(shown)) return true;
  if (isSpent_ && !gaveNothing_ && CMTIME_IS_VALID(shown)) decoder_.reset();
  return false;
}

bool SampleQueueDecoder::letGo(CMTime shown) {
  if (!decoder_ || gaveNothing_ || !CMTIME_IS_VALID(shown)) return false;
  if (!sampleQueue_.rewind(generation_)) return false;
  decoder_.reset();
  restartDecoder();
  isSpent_ = true;
  goOnAfter(shown);
  return true;
}

}  // namespace zaffo::media
