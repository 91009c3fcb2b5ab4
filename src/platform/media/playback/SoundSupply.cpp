// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/SoundSupply.h"

#include <cmath>
#include <utility>

namespace zaffo::media {

namespace {

/// Time given to decoding when sound is to start at a place while playing.
constexpr double kJoiningSeconds = 0.02;

}  // namespace

SoundSupply::SoundSupply(const std::shared_ptr<SampleSource>& source,
                         std::span<const TrackVolume> volumes, AudioOutput& output)
    : output_(output) {
  if (auto track = Soundtrack::create(source, volumes, output)) {
    feed_ = SoundFeed::create(std::move(track));
  }
}

void SoundSupply::setReadyHandler(const std::function<void()>& handler) {
  if (feed_) feed_->setHandler(handler);
}

void SoundSupply::setVolume(float volume) {
  if (feed_) feed_->with([volume](Soundtrack& track) { track.setVolume(volume); });
}

bool SoundSupply::prefill(CMTime time) {
  return !feed_ || feed_->with([time](Soundtrack& track) { return track.prefill(time); });
}

bool SoundSupply::failed() const {
  return feed_ && feed_->with([](const Soundtrack& track) { return track.failed(); });
}

void SoundSupply::start(PlaybackClock& clock, double rate, int64_t host) {
  int64_t start = host;
  joint_.reset();
  if (feed_) {
    const int64_t firstFrame = output_.earliestStartFrame();
    start = hostTimeOf(firstFrame);
    feed_->start(firstFrame, rate);
    clock.follow(output_.clock());
  }
  clock.start(rate, start, host);
}

void SoundSupply::joinAgain(const PlaybackClock& clock, double rate) {
  if (!feed_) return;
  const int64_t firstFrame =
      output_.earliestStartFrame() + static_cast<int64_t>(kJoiningSeconds * output_.sampleRate());
  joint_ = {clock.timeAt(hostTimeOf(firstFrame)), firstFrame, rate};
  feed_->stop();
  join();
}

void SoundSupply::join() {
  if (!joint_ || !prefill(joint_->time)) return;
  feed_->start(joint_->outputFrame, joint_->rate);
  joint_.reset();
}

void SoundSupply::stop() {
  joint_.reset();
  if (feed_) feed_->stop();
}

std::optional<int64_t> SoundSupply::runsDryHostTime() const {
  if (joint_) return hostTimeOf(joint_->outputFrame);
  return feed_ ? feed_->runsDryHostTime() : std::nullopt;
}

bool SoundSupply::isLeftBehind() const {
  return feed_ && feed_->isLeftBehind();
}

std::optional<DataEnd> SoundSupply::end() const {
  if (!feed_) return std::nullopt;
  return feed_->with([](const Soundtrack& track) {
    return DataEnd{track.finished(), track.endTime()};
  });
}

void SoundSupply::rest() {
  if (feed_) feed_->with([](Soundtrack& track) { track.release(); });
}

void SoundSupply::close() {
  joint_.reset();
  feed_.reset();
}

int64_t SoundSupply::hostTimeOf(int64_t outputFrame) const {
  const double seconds = static_cast<double>(outputFrame) / output_.sampleRate();
  return output_.clock()->hostTimeAtNanoseconds(std::llround(seconds * 1e9));
}

}  // namespace zaffo::media
