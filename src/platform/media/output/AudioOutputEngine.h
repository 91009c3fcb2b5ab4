// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/Mutex.h"
#include "platform/coremedia/CMAudioClock.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSError.h"
#include "platform/media/output/AudioMixer.h"
#include "platform/media/output/AudioOutput.h"
#include "platform/media/output/AudioRecorder.h"
#include "platform/media/output/DeviceControl.h"
#include "platform/media/output/NullDevice.h"

namespace zaffo::media {

/// The AudioOutput: joins mixer, clock and devices. Its decisions are made on the control queue,
/// one after another; callers only publish and leave a message there.
///
/// Who renders:
///
///     nobody ──something sounds──▶ null device ──the device has its place──▶ device
///        ▲                          │      ▲                                  │
///        └──── 0.1 s of silence ────┘      └────── the device is lost ────────┤
///        ◀────────────────────── 3 s of silence, the device is closed ────────┘
///
/// While a recording runs, somebody always renders.
class AudioOutputEngine final : public AudioOutput,
                                public std::enable_shared_from_this<AudioOutputEngine> {
 public:
  static constexpr int kSampleRate = 48000;
  /// The device stays open for this long after the last sound.
  static constexpr int64_t kDeviceLinger = 3'000'000'000;

  enum class Route {
    Device,  ///< the device, and the null device while there is none
    Null,    ///< the null device alone
  };

  /// `control`: a serial queue. `openDevice`: how to get at a device.
  [[nodiscard]] static std::shared_ptr<AudioOutputEngine> create(DispatchQueuePtr control,
                                                                 OpenAudioDevice openDevice);
  /// The one behind AudioOutput::shared().
  [[nodiscard]] static AudioOutputEngine& shared();
  ~AudioOutputEngine() override;

  [[nodiscard]] int sampleRate() const override { return kSampleRate; }
  [[nodiscard]] const std::shared_ptr<CMClock>& clock() const override { return clock_; }
  [[nodiscard]] int64_t earliestStartFrame() const override;
  [[nodiscard]] int64_t renderLimit() const override;
  [[nodiscard]] std::shared_ptr<AudioInput> addInput(int64_t capacityFrames) override;

  /// Device at first. Takes effect soon; the sound goes on. Thread: any.
  void setRoute(Route route);
  /// Closes the device; the null device goes on until it has been opened again. Thread: any.
  void reopenDevice();

  /// Records what is rendered from this call on; ends a recording under way. Returns what failed,
  /// or null. Waits for the file system to create the file, and nothing else. Thread: main.
  [[nodiscard]] NSErrorPtr startRecording(const std::string& path);
  /// Returns when the file is complete; at once when nothing is recorded. Thread: main.
  void stopRecording();

  /// Something is about to sound.
  void wake();
  /// An input has been removed: lets go of it when it has faded out.
  void sweepSoon();
  /// Every frame below it has been rendered.
  [[nodiscard]] int64_t renderedFrames() const { return mixer_->nextFrame(); }
  [[nodiscard]] bool rendering() const { return rendering_.load(); }
  /// Whether a device renders, rather than the null device or nobody.
  [[nodiscard]] bool onDevice() const { return onDevice_.load(); }

 private:
  AudioOutputEngine(DispatchQueuePtr control, OpenAudioDevice openDevice);

  void post(void (AudioOutputEngine::*what)());
  void warmUp();
  void beAwake();
  void devicePlays();
  void renderNull();
  void tick();
  void restIfIdle();
  void sweep();
  [[nodiscard]] int64_t presentFrame() const;

  const DispatchQueuePtr control_;
  const std::shared_ptr<CMAudioClock> deviceClock_;
  const std::shared_ptr<CMClock> clock_;
  const std::shared_ptr<AudioMixer> mixer_;
  std::atomic<bool> rendering_{false};
  std::atomic<bool> onDevice_{false};
  std::atomic<bool> recording_{false};

  // On the control queue.
  NullDevice nullDevice_;
  const std::shared_ptr<DeviceControl> device_;
  Route route_ = Route::Device;
  int64_t awakeFrame_ = 0;  ///< the latest frame at which something was about to sound
  DispatchTimerPtr sweepTimer_;

  // On the main thread.
  std::shared_ptr<AudioRecorder> recorder_;
};

}  // namespace zaffo::media
