// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/DeviceControl.h"

#include <algorithm>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/Confinement.h"

namespace zaffo::media {

DeviceControl::DeviceControl(std::shared_ptr<AudioMixer> mixer, std::shared_ptr<CMAudioClock> clock,
                             int sampleRate, DispatchQueuePtr control, OpenAudioDevice openDevice)
    : mixer_(std::move(mixer)),
      clock_(std::move(clock)),
      sampleRate_(sampleRate),
      control_(std::move(control)),
      openDevice_(std::move(openDevice)) {}

DeviceControl::~DeviceControl() {
  dropSession();
}

void DeviceControl::want() {
  assertCurrent(*control_);
  const int64_t now = TimeSource::now();
  if (state_ == State::Opening && now - openedAt_ >= kLongestOpening) failed(session_->owner());
  const bool mayOpen = state_ == State::Closed || (state_ == State::Waiting && now >= openAgainAt_);
  if (!mayOpen || !openDevice_) return;
  state_ = State::Opening;
  openedAt_ = now;
  const RenderGate::Owner owner = nextOwner_++;
  session_ = std::make_shared<DeviceSession>(
      mixer_, owner, dispatch_queue_create_blocking("com.zaffo.audio.device"),
      [weak = weak_from_this(), owner, control = control_] {
        control->async([weak, owner] {
          if (const auto self = weak.lock()) self->failed(owner);
        });
      });
  askedAt_ = std::nullopt;
  session_->queue()->async([weak = weak_from_this(), session = session_, control = control_,
                            open = openDevice_, rate = sampleRate_] {
    const bool succeeded = session->open(open, rate);
    control->async([weak, session, succeeded] {
      if (const auto self = weak.lock()) self->opened(session, succeeded);
    });
  });
}

void DeviceControl::opened(const std::shared_ptr<DeviceSession>& session, bool succeeded) {
  assertCurrent(*control_);
  if (session != session_) return;
  if (!succeeded) {
    failed(session->owner());
    return;
  }
  state_ = State::Settling;
  tracker_.emplace(clock_, sampleRate_, TimeSource::now());
  startPolling(kSettlingPoll);
}

void DeviceControl::failed(RenderGate::Owner owner) {
  assertCurrent(*control_);
  if (!session_ || session_->owner() != owner) return;
  const bool wasPlaying = state_ == State::Playing;
  dropSession();
  state_ = State::Waiting;
  openAgainAt_ = TimeSource::now() + pause_;
  pause_ = std::min(2 * pause_, kLongestPause);
  if (wasPlaying) events_.lost();
}

void DeviceControl::close() {
  assertCurrent(*control_);
  dropSession();
  state_ = State::Closed;
  pause_ = kShortestPause;
}

void DeviceControl::startPolling(int64_t interval) {
  if (pollTimer_) pollTimer_->cancel();
  pollTimer_ = dispatch_timer_every(interval, control_, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->poll();
  });
}

void DeviceControl::poll() {
  assertCurrent(*control_);
  if (!session_) return;
  const int64_t now = TimeSource::now();
  if (askedAt_ && now - *askedAt_ >= kLongestAnswer) {
    failed(session_->owner());
  } else if (!askedAt_) {
    askedAt_ = now;
    session_->queue()->async([weak = weak_from_this(), session = session_, control = control_] {
      const int64_t before = TimeSource::now();
      const auto heard = session->framesHeard();
      const int64_t host = before + (TimeSource::now() - before) / 2;
      control->async([weak, session, host, heard] {
        if (const auto self = weak.lock()) self->reported(session, host, heard);
      });
    });
  }
  events_.polled();
}

void DeviceControl::reported(const std::shared_ptr<DeviceSession>& session, int64_t host,
                             std::optional<int64_t> framesHeard) {
  assertCurrent(*control_);
  if (session != session_) return;
  askedAt_ = std::nullopt;
  if (framesHeard) noteLatency(session->framesGiven() - *framesHeard);
  if (!framesHeard || tracker_->report(host, *framesHeard) == DeviceClockTracker::State::Stalled) {
    failed(session->owner());
    return;
  }
  if (tracker_->state() != DeviceClockTracker::State::Following) return;
  session->setOffset(tracker_->offset());
  if (state_ == State::Playing) return;
  state_ = State::Playing;
  pause_ = kShortestPause;
  session->takeOver();
  startPolling(kPlayingPoll);
  events_.playing();
}

/// Devices take sound in pieces, so that each look finds them filled differently.
void DeviceControl::noteLatency(int64_t frames) {
  constexpr int64_t kShareLost = 32;  // by each report while it plays
  const int64_t most = latencyFrames_.load();
  const int64_t lost = state_ == State::Playing ? most / kShareLost : 0;
  latencyFrames_.store(std::max(frames, most - lost));
}

/// Lets go of the device on its own queue, where it may take its time.
void DeviceControl::dropSession() {
  if (pollTimer_) pollTimer_->cancel();
  pollTimer_ = nullptr;
  tracker_.reset();
  askedAt_ = std::nullopt;
  if (!session_) return;
  if (state_ == State::Playing) {
    mixer_->gate().passTo(0);
    // The clock goes on at the host's pace.
    const int64_t now = TimeSource::now();
    clock_->setAnchor(clock_->nanosecondsAtHostTime(now), now);
  }
  const auto session = std::exchange(session_, nullptr);
  session->queue()->async([session] { session->close(); });
}

}  // namespace zaffo::media
