// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/coremedia/CMAudioClock.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/output/AudioDevice.h"
#include "platform/media/output/AudioMixer.h"
#include "platform/media/output/DeviceClockTracker.h"
#include "platform/media/output/DeviceSession.h"

namespace zaffo::media {

/// Opens, watches and closes the sound device. Whatever may wait for it runs on a queue of that
/// device's own, so that one that hangs holds up nobody.
///
///              want()             opened          has its place on the time line
///     Closed ──────────▶ Opening ────────▶ Settling ─────────▶ Playing
///       ▲  ▲                │                 │                   │
///       │  └── close() ─────┼─────────────────┼───────────────────┤
///       │                   ▼ failed          ▼ failed, stalled   ▼
///       └─── close() ──── Waiting ◀───────────┴───────────────────┘
///                           │ want(), after the pause
///                           └──▶ Opening
///
/// The pause after a failure doubles from half a second to half a minute until a device plays.
/// Thread: the control queue, which is serial.
class DeviceControl : public std::enable_shared_from_this<DeviceControl> {
 public:
  static constexpr int64_t kShortestPause = 500'000'000;
  static constexpr int64_t kLongestPause = 30'000'000'000;
  static constexpr int64_t kSettlingPoll = 20'000'000;
  static constexpr int64_t kPlayingPoll = 500'000'000;
  /// A device that answers nothing for this long counts as failed.
  static constexpr int64_t kLongestAnswer = 2'000'000'000;

  /// One that has not opened after this long counts as failed.
  static constexpr int64_t kLongestOpening = 10'000'000'000;

  struct Events {
    std::function<void()> playing;  ///< the device renders from now on
    std::function<void()> lost;     ///< a device that was playing does so no more
    std::function<void()> polled;   ///< now and then while the device is open
  };

  DeviceControl(std::shared_ptr<AudioMixer> mixer, std::shared_ptr<CMAudioClock> clock,
                int sampleRate, DispatchQueuePtr control, OpenAudioDevice openDevice);
  ~DeviceControl();
  /// Once, before anything else. Called on the control queue.
  void setEvents(Events events) { events_ = std::move(events); }

  /// There is something to play: opens the device unless it is open or being waited for.
  void want();
  /// Closes the device and forgets failures. Calls no event.
  void close();
  [[nodiscard]] bool playing() const { return state_ == State::Playing; }
  /// The most that devices were seen to take ahead of what is heard; it falls slowly, and is
  /// remembered for the next device. Thread: any.
  [[nodiscard]] int64_t latencyFrames() const { return latencyFrames_.load(); }

 private:
  enum class State { Closed, Opening, Settling, Playing, Waiting };

  void opened(const std::shared_ptr<DeviceSession>& session, bool succeeded);
  void failed(RenderGate::Owner owner);
  void startPolling(int64_t interval);
  void poll();
  void reported(const std::shared_ptr<DeviceSession>& session, int64_t host,
                std::optional<int64_t> framesHeard);
  void noteLatency(int64_t frames);
  void dropSession();

  const std::shared_ptr<AudioMixer> mixer_;
  const std::shared_ptr<CMAudioClock> clock_;
  const int sampleRate_;
  const DispatchQueuePtr control_;
  const OpenAudioDevice openDevice_;
  Events events_;

  State state_ = State::Closed;
  RenderGate::Owner nextOwner_ = 2;
  int64_t pause_ = kShortestPause;
  int64_t openedAt_ = 0;
  int64_t openAgainAt_ = 0;
  std::shared_ptr<DeviceSession> session_;
  std::optional<DeviceClockTracker> tracker_;
  DispatchTimerPtr pollTimer_;
  std::optional<int64_t> askedAt_;  ///< since when the device owes an answer
  std::atomic<int64_t> latencyFrames_{0};
};

}  // namespace zaffo::media
