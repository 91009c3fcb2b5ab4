// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/PictureSupply.h"

#include <utility>

#include "platform/TimeSource.h"
#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/playback/DecodeTurn.h"

namespace zaffo::media {

namespace {

std::unique_ptr<VideoTrack> firstVideoTrack(const std::shared_ptr<SampleSource>& source) {
  for (const auto& track : source->tracks()) {
    if (track->mediaType != AVMediaTypeVideo) continue;
    return std::make_unique<VideoTrack>(source, track->trackID);
  }
  return nullptr;
}

}  // namespace

PictureSupply::PictureSupply(const std::shared_ptr<SampleSource>& source,
                             std::shared_ptr<FrameStore> frames, CMTime duration)
    : frames_(std::move(frames)), duration_(duration), track_(firstVideoTrack(source)) {}

void PictureSupply::setReadyHandler(const std::function<void()>& handler) {
  if (track_) track_->setReadyHandler(handler);
}

void PictureSupply::beginSearch(const SeekRequest& seek) {
  found_ = {};
  error_ = nullptr;
  hasEnded_ = false;
  lateness_ = {};
  if (!track_ || takeFirstFrame(seek.target())) return;
  frames_->dropQueued();
  track_->beginSeek(seek.target(), seek.earliest(), seek.latest());
}

bool PictureSupply::takeFirstFrame(CMTime target) {
  if (!first_ || target > CMTimeMaximum(first_->presentation, kCMTimeZero)) return false;
  track_->resumeAfter(first_->presentation);
  found_ = *first_;
  return true;
}

Outcome PictureSupply::stepSearch() {
  if (!track_ || found_.buffer) return Outcome::Ready;
  const Outcome outcome = track_->stepSeek(found_);
  if (outcome == Outcome::End || outcome == Outcome::Error) error_ = track_->error();
  return outcome;
}

bool PictureSupply::showPreview() {
  auto preview = track_ ? track_->takePreview() : std::nullopt;
  if (!preview) return false;
  frames_->show(*std::move(preview));
  frames_->keepPicture();
  return true;
}

void PictureSupply::showFound(CMTime position) {
  if (track_) static_cast<void>(track_->takeLate());  // on the way to it
  if (found_.buffer) {
    endOfLast_ = endOf(found_);
    if (position == kCMTimeZero && !first_) first_ = found_;
  }
  frames_->show(std::exchange(found_, {}));
}

void PictureSupply::decodeAhead(CMTime now, const std::function<bool()>& isSuperseded) {
  const bool isInDecodeOnlyRun = track_ && track_->decodeOnlyRun().isUnderWay();
  const int64_t pixels = track_ ? track_->pixels() : 0;
  burst_.update(frames_->queued(), framesForDecodeOnlyRun(), isInDecodeOnlyRun,
                DecodeBurst::manyFrames(frames_->somebodyDraws(), pixels));
  if (!track_ || hasEnded_) burst_.stop();
  waits_ = false;
  for (DecodeTurn turn; burst_.isOn() && turn.goesOn();) {
    if (isSuperseded() || !step(now)) return;
  }
}

/// False when that is all for now.
bool PictureSupply::step(CMTime now) {
  VideoFrame frame;
  const Outcome outcome = track_->stepNext(frame);
  if (const std::size_t late = track_->takeLate()) frames_->noteLate(late);
  switch (outcome) {
    case Outcome::Working:
      return true;
    case Outcome::Again:
      waits_ = true;
      return false;
    case Outcome::Ready:
      endOfLast_ = endOf(frame);
      lateness_.gave(endOfLast_, TimeSource::now());
      track_->hurryTo(lateness_.hurries(now) ? now : kCMTimeInvalid);
      track_->leapTo(lateness_.isFarBehind(now) ? now : kCMTimeInvalid);
      frames_->push(std::move(frame));
      return false;
    case Outcome::Error:
      error_ = track_->error();
      break;
    case Outcome::End:
      break;
  }
  hasEnded_ = true;
  burst_.stop();
  return false;
}

std::optional<CMTime> PictureSupply::nextWake() const {
  return frames_->nextWake(DecodeBurst::kFewFrames + framesForDecodeOnlyRun());
}

bool PictureSupply::isDry(CMTime now) const {
  if (!track_ || hasEnded_ || endOfLast_ > now) return false;
  return !CMTIME_IS_NUMERIC(duration_) || endOfLast_ < duration_;
}

std::optional<CMTime> PictureSupply::runsDryAt() const {
  return waits_ && isDry(endOfLast_) ? std::optional(endOfLast_) : std::nullopt;
}

std::optional<DataEnd> PictureSupply::end() const {
  return track_ ? std::optional(DataEnd{hasEnded_, endOfLast_}) : std::nullopt;
}

void PictureSupply::rest() {
  if (track_) track_->releaseDecoderIfRebuildable();
}

bool PictureSupply::holdsMore() const {
  return track_ && !error_ &&
         (track_->hasDecoder() || frames_->queued() > 0 || keepsOtherThan(frames_->shownTime()));
}

bool PictureSupply::keepsOtherThan(CMTime shown) const {
  return first_ && first_->presentation != shown;
}

void PictureSupply::letGo() {
  const CMTime shown = frames_->shownTime();
  if (!holdsMore() || CMTIME_IS_INVALID(shown)) return;
  frames_->dropQueued();
  found_ = {};
  if (keepsOtherThan(shown)) first_.reset();
  track_->resumeAfter(shown);
  track_->releaseDecoderIfRebuildable();
  burst_.stop();
  lateness_ = {};
  endOfLast_ = shown;
  hasEnded_ = waits_ = false;
}

void PictureSupply::close() {
  track_.reset();
  first_.reset();
  found_ = {};
  frames_->show({});
}

CMTime PictureSupply::endOf(const VideoFrame& frame) const {
  const bool known = CMTIME_IS_NUMERIC(frame.duration) && frame.duration > kCMTimeZero;
  if (known) return frame.presentation + frame.duration;
  return CMTIME_IS_NUMERIC(duration_) ? CMTimeMaximum(frame.presentation, duration_)
                                      : frame.presentation;
}

std::size_t PictureSupply::framesForDecodeOnlyRun() const {
  return track_ ? track_->decodeOnlyRun().framesAhead() : 0;
}

}  // namespace zaffo::media
