// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/FrameFinder.h"

#include <utility>

#include "platform/foundation/MakeError.h"

namespace zaffo::media {

void FrameFinder::begin(CMTime time) {
  time_ = time;
  last_ = first_ = std::nullopt;
  horizon_ = {};
  best_.reset();
  stage_ = cursor_->seek(time) ? Stage::Looking : Stage::Over;
}

Outcome FrameFinder::step(VideoFrame& frame) {
  switch (stage_) {
    case Stage::Looking:
      return lookAhead();
    case Stage::Decoding:
      return decode(frame);
    case Stage::Draining:
      return drain(frame);
    case Stage::Over:
      break;
  }
  return Outcome::Error;
}

/// Without decoding, until no sample can follow that is shown up to the time, or before the first
/// one that is shown at all.
Outcome FrameFinder::lookAhead() {
  if (isSettled()) return startDecoding();
  Sample sample;
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Again) return outcome;
  if (outcome != Outcome::Ready) return startDecoding();
  pass(sample);
  return Outcome::Working;
}

bool FrameFinder::isSettled() const {
  return last_ ? horizon_.time() > time_ : first_ && horizon_.time() >= *first_;
}

void FrameFinder::pass(const Sample& sample) {
  horizon_.pass(sample);
  if (sample.decodeOnly || !CMTIME_IS_NUMERIC(sample.presentation)) return;
  const CMTime shownAt = sample.presentation;
  if (!first_ || shownAt < *first_) first_ = shownAt;
  if (shownAt <= time_ && (!last_ || shownAt > *last_)) last_ = shownAt;
}

Outcome FrameFinder::startDecoding() {
  stage_ = Stage::Over;
  if (!first_) return Outcome::Error;
  target_ = last_ ? *last_ : *first_;
  if (!cursor_->seek(target_) || !prepareDecoder()) return Outcome::Error;
  stage_ = Stage::Decoding;
  return Outcome::Working;
}

/// Segments of a composition may be of different codecs.
bool FrameFinder::prepareDecoder() {
  if (decoder_) {
    decoder_->reset();
    return decoder_->adoptParameters(cursor_->codecParameters());
  }
  auto decoder = VideoDecoder::open(cursor_->codecParameters());
  openError_ = decoder.error();
  decoder_ = std::move(decoder).valueOr(nullptr);
  return decoder_ != nullptr;
}

Outcome FrameFinder::decode(VideoFrame& frame) {
  Sample sample;
  const Outcome outcome = cursor_->next(sample);
  if (outcome == Outcome::Again) return outcome;
  bool isWanted = false;
  if (outcome == Outcome::Ready) {
    isWanted = !sample.decodeOnly && sample.presentation == target_;
    decoder_->setSkipsUnreferencedFrames(!isWanted);
    while (decoder_->send(sample) == Outcome::Again) {
      Outcome received = Outcome::Working;
      while (received == Outcome::Working) received = receive();
      if (received == Outcome::Ready) return finish(frame);
    }
  }
  if (isWanted || outcome != Outcome::Ready) {
    decoder_->drain();
    stage_ = Stage::Draining;
  }
  return Outcome::Working;
}

Outcome FrameFinder::drain(VideoFrame& frame) {
  return receive() == Outcome::Working ? Outcome::Working : finish(frame);
}

/// Takes a frame that is ready: Ready when it is the target, Working when it is another, Again or
/// End when there is none. One after the target will do as long as there is none before it: what a
/// file begins with may lean on what was cut off.
Outcome FrameFinder::receive() {
  VideoFrame frame;
  const Outcome outcome = decoder_->receive(frame);
  if (outcome == Outcome::Again || outcome == Outcome::End) return outcome;
  if (outcome == Outcome::Error) return Outcome::Working;
  if (best_ && frame.presentation > CMTimeMaximum(best_->presentation, target_)) {
    return Outcome::Working;
  }
  const bool isIt = frame.presentation == target_;
  best_ = std::move(frame);
  return isIt ? Outcome::Ready : Outcome::Working;
}

Outcome FrameFinder::finish(VideoFrame& frame) {
  stage_ = Stage::Over;
  if (!best_) return Outcome::Error;
  frame = *std::exchange(best_, std::nullopt);
  return Outcome::Ready;
}

NSErrorPtr FrameFinder::error() const {
  if (cursor_->error()) return cursor_->error();
  if (openError_) return openError_;
  if (decoder_ && decoder_->error()) return decoder_->error();
  return makeError(AVErrorDecodeFailed, "No picture of the track can be decoded.");
}

}  // namespace zaffo::media
