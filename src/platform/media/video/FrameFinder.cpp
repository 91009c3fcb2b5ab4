// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/FrameFinder.h"

#include <condition_variable>

#include "platform/dispatch/OutsideWait.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/ReorderHorizon.h"

namespace zaffo::media {

/// Wakes the finder when a source that was waited for has more.
class FrameFinder::Arrival {
 public:
  void announce() {
    MutexLock lock(arrivalMutex_);
    arrived_ = true;
    changed_.notify_one();
  }
  void wait() {
    const OutsideWait outside;
    MutexLock lock(arrivalMutex_);
    while (!arrived_) changed_.wait(arrivalMutex_);
    arrived_ = false;
  }

 private:
  Mutex arrivalMutex_;
  std::condition_variable_any changed_;
  bool arrived_ ZAFFO_GUARDED_BY(arrivalMutex_) = false;
};

Result<std::unique_ptr<FrameFinder>> FrameFinder::open(std::unique_ptr<SampleCursor> cursor) {
  auto decoder = VideoDecoder::open(cursor->codecParameters());
  if (!decoder) return decoder.error();
  return std::unique_ptr<FrameFinder>(new FrameFinder(std::move(cursor), *std::move(decoder)));
}

FrameFinder::FrameFinder(std::unique_ptr<SampleCursor> cursor,
                         std::unique_ptr<VideoDecoder> decoder)
    : arrival_(std::make_shared<Arrival>()),
      cursor_(std::move(cursor)),
      decoder_(std::move(decoder)) {
  cursor_->setReadyHandler([arrival = arrival_] { arrival->announce(); });
}

FrameFinder::~FrameFinder() = default;

Result<VideoFrame> FrameFinder::frameAt(CMTime time) {
  const std::optional<CMTime> target = presentationAt(time);
  std::optional<VideoFrame> frame = target ? decodeTo(*target) : std::nullopt;
  if (!frame) return failure();
  return *std::move(frame);
}

Outcome FrameFinder::next(Sample& sample) {
  for (;;) {
    const Outcome outcome = cursor_->next(sample);
    if (outcome != Outcome::Again) return outcome;
    arrival_->wait();
  }
}

// Looks ahead without decoding, until no sample can follow that is shown up to `time`, or before
// the first one that is shown at all.
std::optional<CMTime> FrameFinder::presentationAt(CMTime time) {
  if (!cursor_->seek(time)) return std::nullopt;
  std::optional<CMTime> last, first;
  ReorderHorizon horizon;
  Sample sample;
  const auto isSettled = [&] {
    return last ? horizon.time() > time : first && horizon.time() >= *first;
  };
  while (!isSettled() && next(sample) == Outcome::Ready) {
    horizon.pass(sample);
    if (sample.decodeOnly || !CMTIME_IS_NUMERIC(sample.presentation)) continue;
    const CMTime shownAt = sample.presentation;
    if (!first || shownAt < *first) first = shownAt;
    if (shownAt <= time && (!last || shownAt > *last)) last = shownAt;
  }
  return last ? last : first;
}

std::optional<VideoFrame> FrameFinder::decodeTo(CMTime target) {
  std::optional<VideoFrame> best;
  Sample sample;
  decoder_->reset();
  if (!cursor_->seek(target)) return best;
  // Segments of a composition may be of different codecs.
  if (!decoder_->adoptParameters(cursor_->codecParameters())) return best;
  bool wanted = false;
  while (!wanted && next(sample) == Outcome::Ready) {
    wanted = !sample.decodeOnly && sample.presentation == target;
    decoder_->setSkipsUnreferencedFrames(!wanted);
    while (decoder_->send(sample) == Outcome::Again) {
      if (take(target, best)) return best;
    }
  }
  decoder_->drain();
  (void)take(target, best);
  return best;
}

// Takes the frames that are ready; whether the target is among them. One after it will do as long
// as there is none before it: what a file begins with may lean on what was cut off.
bool FrameFinder::take(CMTime target, std::optional<VideoFrame>& best) {
  VideoFrame frame;
  for (;;) {
    const Outcome outcome = decoder_->receive(frame);
    if (outcome == Outcome::Again || outcome == Outcome::End) return false;
    if (outcome == Outcome::Error) continue;
    if (best && frame.presentation > CMTimeMaximum(best->presentation, target)) continue;
    best = frame;
    if (frame.presentation == target) return true;
  }
}

NSErrorPtr FrameFinder::failure() const {
  if (cursor_->error()) return cursor_->error();
  if (decoder_->error()) return decoder_->error();
  return makeError(AVErrorDecodeFailed, "No picture of the track can be decoded.");
}

}  // namespace zaffo::media
