// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/AudioOutputEngine.h"

#include <algorithm>
#include <future>
#include <thread>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/dispatch/Confinement.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/foundation/NSThread.h"
#include "platform/media/FrameTime.h"
#include "platform/media/output/CubebDevice.h"
#include "platform/media/output/MixedInput.h"

namespace zaffo::media {

namespace {

constexpr int kRate = AudioOutputEngine::kSampleRate;
constexpr int64_t kPeriodFrames = framesAtNanoseconds(NullDevice::kPeriodNanoseconds, kRate);
/// The null device goes on for this long after the last sound.
constexpr int64_t kNullLingerFrames = kRate / 10;
constexpr int64_t kDeviceLingerFrames =
    framesAtNanoseconds(AudioOutputEngine::kDeviceLinger, kRate);
constexpr int64_t kSweepNanoseconds = 30'000'000;
/// What a recording may lag behind the disk.
constexpr int64_t kTapFrames = 8 * kRate;

}  // namespace

std::shared_ptr<AudioOutputEngine> AudioOutputEngine::create(DispatchQueuePtr control,
                                                             OpenAudioDevice openDevice) {
  std::shared_ptr<AudioOutputEngine> engine(
      new AudioOutputEngine(std::move(control), std::move(openDevice)));
  const std::weak_ptr<AudioOutputEngine> weak = engine;
  const auto event = [weak](void (AudioOutputEngine::*what)()) {
    return [weak, what] {
      if (const auto self = weak.lock()) (*self.*what)();
    };
  };
  engine->device_->setEvents({.playing = event(&AudioOutputEngine::devicePlays),
                              .lost = event(&AudioOutputEngine::renderNull),
                              .polled = event(&AudioOutputEngine::restIfIdle)});
  return engine;
}

AudioOutputEngine::AudioOutputEngine(DispatchQueuePtr control, OpenAudioDevice openDevice)
    : control_(std::move(control)),
      deviceClock_(CMAudioClock::create()),
      clock_(deviceClock_),
      mixer_(std::make_shared<AudioMixer>()),
      nullDevice_(*mixer_, *clock_, kSampleRate, control_),
      device_(std::make_shared<DeviceControl>(mixer_, deviceClock_, kSampleRate, control_,
                                              std::move(openDevice))) {
  deviceClock_->setAnchor(0, TimeSource::now());
}

AudioOutputEngine::~AudioOutputEngine() = default;

int64_t AudioOutputEngine::presentFrame() const {
  return framesAtNanoseconds(clock_->nanosecondsAtHostTime(TimeSource::now()), kSampleRate);
}

int64_t AudioOutputEngine::earliestStartFrame() const {
  return std::max(mixer_->nextFrame(), presentFrame() + kPeriodFrames) + kPeriodFrames;
}

int64_t AudioOutputEngine::renderLimit() const {
  return std::max(earliestStartFrame(), presentFrame() + kPeriodFrames + device_->latencyFrames());
}

std::shared_ptr<AudioInput> AudioOutputEngine::addInput(int64_t capacityFrames) {
  auto input = std::make_shared<MixedInput>(mixer_, mixer_->add(capacityFrames), weak_from_this());
  post(&AudioOutputEngine::warmUp);
  return input;
}

void AudioOutputEngine::post(void (AudioOutputEngine::*what)()) {
  control_->async([weak = weak_from_this(), what] {
    if (const auto self = weak.lock()) (*self.*what)();
  });
}

void AudioOutputEngine::wake() {
  post(&AudioOutputEngine::beAwake);
}

void AudioOutputEngine::sweepSoon() {
  post(&AudioOutputEngine::sweep);
}

void AudioOutputEngine::setRoute(Route route) {
  control_->async([weak = weak_from_this(), route] {
    const auto self = weak.lock();
    if (!self || self->route_ == route) return;
    self->route_ = route;
    if (route == Route::Null) self->device_->close();
    if (self->rendering_.load() && !self->device_->playing()) self->renderNull();
  });
}

void AudioOutputEngine::reopenDevice() {
  control_->async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->device_->close();
    if (self->rendering_.load()) self->renderNull();
  });
}

/// Opens the device ahead of the first sound.
void AudioOutputEngine::warmUp() {
  assertCurrent(*control_);
  awakeFrame_ = std::max(awakeFrame_, presentFrame());
  if (route_ == Route::Device) device_->want();
}

void AudioOutputEngine::beAwake() {
  warmUp();
  rendering_.store(true);
  if (!device_->playing()) renderNull();
}

void AudioOutputEngine::devicePlays() {
  assertCurrent(*control_);
  nullDevice_.stop();
  rendering_.store(true);
  onDevice_.store(true);
}

void AudioOutputEngine::renderNull() {
  assertCurrent(*control_);
  onDevice_.store(false);
  const bool heard = route_ == Route::Device || recording_.load();
  nullDevice_.start(
      [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->tick();
      },
      heard ? NullDevice::kPeriodNanoseconds : NullDevice::kUnheardInterval);
  nullDevice_.render();
}

void AudioOutputEngine::tick() {
  renderNull();
  if (route_ == Route::Device) device_->want();
  restIfIdle();
}

void AudioOutputEngine::restIfIdle() {
  assertCurrent(*control_);
  if (recording_.load()) return;
  const int64_t silence = presentFrame() - std::max(mixer_->lastActiveFrame(), awakeFrame_);
  if (silence >= kNullLingerFrames) nullDevice_.stop();
  if (silence >= kDeviceLingerFrames) {
    device_->close();
    onDevice_.store(false);
  }
  if (!nullDevice_.running() && !device_->playing()) rendering_.store(false);
}

void AudioOutputEngine::sweep() {
  assertCurrent(*control_);
  if (!mixer_->sweep() || sweepTimer_) return;
  sweepTimer_ = dispatch_timer_after(kSweepNanoseconds, control_, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->sweepTimer_ = nullptr;
    self->sweep();
  });
}

NSErrorPtr AudioOutputEngine::startRecording(const std::string& path) {
  assertMainThread();
  stopRecording();
  auto writer = WavWriter::create(path, kSampleRate);
  if (!writer) return writer.error();
  auto tap = std::make_shared<SampleTap>(kTapFrames);
  recorder_ = std::make_shared<AudioRecorder>(*std::move(writer), tap);
  recorder_->start();
  recording_.store(true);
  mixer_->setTap(std::move(tap));
  wake();
  return nullptr;
}

void AudioOutputEngine::stopRecording() {
  assertMainThread();
  if (!recorder_) return;
  const uint64_t lastRender = mixer_->setTap(nullptr);
  recording_.store(false);
  while (!mixer_->gate().hasPassed(lastRender)) std::this_thread::yield();
  std::promise<void> complete;
  recorder_->finish([&complete] { complete.set_value(); });
  complete.get_future().wait();
  recorder_ = nullptr;
}

AudioOutputEngine& AudioOutputEngine::shared() {
  // Never destroyed: a device's threads may still call in while the process ends.
  static const auto* const engine = new std::shared_ptr<AudioOutputEngine>(
      create(dispatch_queue_create("com.zaffo.audio.output"), openCubebDevice));
  return **engine;
}

AudioOutput& AudioOutput::shared() {
  return AudioOutputEngine::shared();
}

}  // namespace zaffo::media
