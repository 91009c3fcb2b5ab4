#include "platform/media/AudioOutputEngine.h"

#include <algorithm>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/MixedInput.h"

namespace zaffo::media {

namespace {

constexpr int64_t kPeriodFrames =
    framesAtNanoseconds(NullDevice::kPeriodNanoseconds, AudioOutputEngine::kSampleRate);
/// Rendering goes on for this long after the last sound.
constexpr int64_t kLingerFrames = AudioOutputEngine::kSampleRate / 10;
constexpr int64_t kSweepNanoseconds = 30'000'000;

}  // namespace

std::shared_ptr<AudioOutputEngine> AudioOutputEngine::create(DispatchQueuePtr control) {
  return std::shared_ptr<AudioOutputEngine>(new AudioOutputEngine(std::move(control)));
}

AudioOutputEngine::AudioOutputEngine(DispatchQueuePtr control)
    : control_(std::move(control)),
      deviceClock_(CMAudioClock::create()),
      clock_(deviceClock_),
      mixer_(std::make_shared<AudioMixer>()),
      nullDevice_(*mixer_, *clock_, kSampleRate) {
  deviceClock_->setAnchor(0, TimeSource::now());
}

AudioOutputEngine::~AudioOutputEngine() = default;

int64_t AudioOutputEngine::presentFrame() const {
  return framesAtNanoseconds(deviceClock_->nanosecondsAtHostTime(TimeSource::now()), kSampleRate);
}

int64_t AudioOutputEngine::earliestStartFrame() const {
  return std::max(mixer_->nextFrame(), presentFrame() + kPeriodFrames) + kPeriodFrames;
}

std::shared_ptr<AudioInput> AudioOutputEngine::addInput(int64_t capacityFrames) {
  return std::make_shared<MixedInput>(mixer_, mixer_->add(capacityFrames), weak_from_this());
}

void AudioOutputEngine::wake() {
  control_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->startRendering();
  });
}

void AudioOutputEngine::sweepSoon() {
  control_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->sweep();
  });
}

void AudioOutputEngine::startRendering() {
  awakeFrame_ = std::max(mixer_->nextFrame(), presentFrame());
  rendering_.store(true);
  nullDevice_.start(control_, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tick();
  });
  nullDevice_.render();
}

void AudioOutputEngine::tick() {
  nullDevice_.render();
  const int64_t lastSound = std::max(mixer_->lastActiveFrame(), awakeFrame_);
  if (mixer_->nextFrame() - lastSound < kLingerFrames) return;
  nullDevice_.stop();
  rendering_.store(false);
}

void AudioOutputEngine::sweep() {
  if (!mixer_->sweep() || sweepTimer_) return;
  sweepTimer_ = dispatch_timer_after(kSweepNanoseconds, control_, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->sweepTimer_ = nullptr;
    self->sweep();
  });
}

AudioOutput& AudioOutput::shared() {
  // Never destroyed: a device's threads may still call in while the process ends.
  static const auto* const output = new std::shared_ptr<AudioOutputEngine>(
      AudioOutputEngine::create(dispatch_queue_create("com.zaffo.audio.output")));
  return **output;
}

}  // namespace zaffo::media
