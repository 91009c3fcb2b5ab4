#pragma once

#include <atomic>
#include <memory>

#include "platform/coremedia/CMAudioClock.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/AudioMixer.h"
#include "platform/media/AudioOutput.h"
#include "platform/media/NullDevice.h"

namespace zaffo::media {

/// The AudioOutput: joins mixer, clock and devices. Its decisions are made on the control queue,
/// one after another; callers only publish and leave a message there.
class AudioOutputEngine final : public AudioOutput,
                                public std::enable_shared_from_this<AudioOutputEngine> {
 public:
  static constexpr int kSampleRate = 48000;

  /// `control`: a serial queue.
  [[nodiscard]] static std::shared_ptr<AudioOutputEngine> create(DispatchQueuePtr control);
  ~AudioOutputEngine() override;

  [[nodiscard]] int sampleRate() const override { return kSampleRate; }
  [[nodiscard]] const std::shared_ptr<CMClock>& clock() const override { return clock_; }
  [[nodiscard]] int64_t earliestStartFrame() const override;
  [[nodiscard]] std::shared_ptr<AudioInput> addInput(int64_t capacityFrames) override;

  /// Something is about to sound.
  void wake();
  /// An input has been removed: lets go of it when it has faded out.
  void sweepSoon();
  /// Every frame below it has been rendered.
  [[nodiscard]] int64_t renderedFrames() const { return mixer_->nextFrame(); }
  [[nodiscard]] bool rendering() const { return rendering_.load(); }

 private:
  explicit AudioOutputEngine(DispatchQueuePtr control);

  void startRendering();
  void tick();
  void sweep();
  [[nodiscard]] int64_t presentFrame() const;

  const DispatchQueuePtr control_;
  const std::shared_ptr<CMAudioClock> deviceClock_;
  const std::shared_ptr<CMClock> clock_;
  const std::shared_ptr<AudioMixer> mixer_;
  std::atomic<bool> rendering_{false};

  // On the control queue.
  NullDevice nullDevice_;
  int64_t awakeFrame_ = 0;  ///< the latest frame at which something was about to sound
  DispatchTimerPtr sweepTimer_;
};

}  // namespace zaffo::media
