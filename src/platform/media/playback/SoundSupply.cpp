#include "platform/media/playback/SoundSupply.h"

#include <cmath>

namespace zaffo::media {

namespace {

/// Time given to decoding when sound is to start at a place while playing.
constexpr double kJoiningSeconds = 0.02;

}  // namespace

SoundSupply::SoundSupply(const std::shared_ptr<SampleSource>& source,
                         std::span<const TrackVolume> volumes, AudioOutput& output)
    : output_(output), track_(Soundtrack::create(source, volumes, output)) {}

void SoundSupply::setReadyHandler(const std::function<void()>& handler) {
  if (track_) track_->setReadyHandler(handler);
}

void SoundSupply::setVolume(float volume) {
  if (track_) track_->setVolume(volume);
}

bool SoundSupply::prefill(CMTime time) {
  return !track_ || track_->prefill(time);
}

void SoundSupply::start(PlaybackClock& clock, double rate, int64_t host) {
  int64_t start = host;
  joint_.reset();
  if (track_) {
    const int64_t firstFrame = output_.earliestStartFrame();
    start = hostTimeOf(firstFrame);
    track_->start(firstFrame, rate);
    clock.follow(output_.clock());
  }
  clock.start(rate, start, host);
}

void SoundSupply::joinAgain(const PlaybackClock& clock, double rate) {
  if (!track_) return;
  const int64_t firstFrame =
      output_.earliestStartFrame() + static_cast<int64_t>(kJoiningSeconds * output_.sampleRate());
  joint_ = {clock.timeAt(hostTimeOf(firstFrame)), firstFrame, rate};
  track_->stop();
  join();
}

void SoundSupply::join() {
  if (!joint_ || !track_->prefill(joint_->time)) return;
  track_->start(joint_->outputFrame, joint_->rate);
  joint_.reset();
}

void SoundSupply::fill() {
  if (track_) track_->fill();
}

void SoundSupply::stop() {
  joint_.reset();
  if (track_) track_->stop();
}

std::optional<int64_t> SoundSupply::nextFillHostTime() const {
  return track_ ? track_->nextFillHostTime() : std::nullopt;
}

std::optional<DataEnd> SoundSupply::end() const {
  return track_ ? std::optional(DataEnd{track_->finished(), track_->endTime()}) : std::nullopt;
}

void SoundSupply::rest() {
  if (track_) track_->release();
}

void SoundSupply::close() {
  joint_.reset();
  track_.reset();
}

int64_t SoundSupply::hostTimeOf(int64_t outputFrame) const {
  const double seconds = static_cast<double>(outputFrame) / output_.sampleRate();
  return output_.clock()->hostTimeAtNanoseconds(std::llround(seconds * 1e9));
}

}  // namespace zaffo::media
