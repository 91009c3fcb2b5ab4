// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/DeviceControl.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "doubles/HeldQueue.h"
#include "doubles/ManualTime.h"
#include "doubles/ScriptedAudioDevice.h"
#include "platform/media/FrameTime.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;
constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
constexpr int64_t kFramesPerMillisecond = kRate / 1000;

class DeviceControlTest : public testing::Test {
 protected:
  DeviceControlTest() {
    clock->setAnchor(0, TimeSource::now());
    control->setEvents({.playing = [this] { ++playing; },
                        .lost = [this] { ++lost; },
                        .polled = [this] { ++polled; }});
  }
  ~DeviceControlTest() override {
    onQueue([this] { control.reset(); });
  }

  void onQueue(DispatchBlock block) {
    queue->async(std::move(block));
    time.settle();
  }
  void want() {
    onQueue([this] { control->want(); });
  }
  void close() {
    onQueue([this] { control->close(); });
  }
  void wantAfter(int64_t milliseconds) {
    time.advance(milliseconds * kMillisecond);
    want();
  }
  /// Moves time and the sound card on together.
  void run(int64_t milliseconds) {
    for (int64_t done = 0; done < milliseconds; done += 10) {
      card.play(10 * kFramesPerMillisecond);
      time.advance(10 * kMillisecond);
    }
  }
  [[nodiscard]] bool isPlaying() {
    bool answer = false;
    onQueue([&] { answer = control->playing(); });
    return answer;
  }

  ManualTime time;
  ScriptedAudioDevice card;
  std::shared_ptr<AudioMixer> mixer = std::make_shared<AudioMixer>();
  std::shared_ptr<CMAudioClock> clock = CMAudioClock::create();
  DispatchQueuePtr queue = dispatch_queue_create("test.control");
  int playing = 0, lost = 0, polled = 0;
  std::shared_ptr<DeviceControl> control =
      std::make_shared<DeviceControl>(mixer, clock, kRate, queue, card.opener());
};

TEST_F(DeviceControlTest, OpensNothingUntilADeviceIsWanted) {
  time.advance(60'000 * kMillisecond);
  EXPECT_EQ(card.attempts, 0);
}

TEST_F(DeviceControlTest, ADeviceThatIsOpenIsNotOpenedAgain) {
  want();
  EXPECT_TRUE(card.open());
  want();
  run(500);
  want();
  EXPECT_EQ(card.attempts, 1);
}

TEST_F(DeviceControlTest, ItRendersOnceItHasItsPlaceOnTheTimeLine) {
  want();
  run(20);
  EXPECT_FALSE(isPlaying());
  EXPECT_EQ(mixer->nextFrame(), 0);
  run(200);
  EXPECT_TRUE(isPlaying());
  EXPECT_EQ(playing, 1);
  EXPECT_GT(mixer->nextFrame(), 0);
  const int64_t heard = framesAtNanoseconds(clock->nanosecondsAtHostTime(TimeSource::now()), kRate);
  EXPECT_NEAR(static_cast<double>(mixer->nextFrame() - heard),
              static_cast<double>(ScriptedAudioDevice::kLatencyFrames), 50);
  EXPECT_EQ(lost, 0);
}

TEST_F(DeviceControlTest, TellsNowAndThenThatADeviceIsOpen) {
  want();
  run(500);
  const int before = polled;
  EXPECT_GT(before, 0);
  run(2000);
  EXPECT_EQ(polled - before, 4);
  close();
  run(2000);
  EXPECT_EQ(polled - before, 4);
}

TEST_F(DeviceControlTest, WaitsTwiceAsLongAfterEachFailureUpToHalfAMinute) {
  card.plugged = false;
  want();
  ASSERT_EQ(card.attempts, 1);
  int64_t pause = 500;
  for (int attempt = 1; attempt <= 8; ++attempt) {
    wantAfter(pause - 1);
    EXPECT_EQ(card.attempts, attempt) << "too early";
    wantAfter(1);
    EXPECT_EQ(card.attempts, attempt + 1) << "too late";
    pause = std::min<int64_t>(2 * pause, 30'000);
  }
  EXPECT_EQ(lost, 0);
}

TEST_F(DeviceControlTest, ADeviceThatPlayedEndsTheLongPauses) {
  card.plugged = false;
  want();
  for (int i = 0; i < 4; ++i) wantAfter(30'000);
  card.plugged = true;
  wantAfter(30'000);
  const int attempts = card.attempts;
  run(500);
  ASSERT_TRUE(isPlaying());
  card.breakDown();
  time.settle();
  card.plugged = true;
  wantAfter(499);
  EXPECT_EQ(card.attempts, attempts);
  wantAfter(1);
  EXPECT_EQ(card.attempts, attempts + 1);
}

TEST_F(DeviceControlTest, ClosingForgetsFailures) {
  card.plugged = false;
  want();
  close();
  want();
  EXPECT_EQ(card.attempts, 2);
}

TEST_F(DeviceControlTest, ADeviceThatPlaysAndGoesIsToldOnce) {
  want();
  run(500);
  ASSERT_TRUE(isPlaying());
  card.breakDown();
  card.breakDown();
  time.settle();
  EXPECT_EQ(lost, 1);
  EXPECT_FALSE(isPlaying());
  EXPECT_FALSE(card.open());
}

TEST_F(DeviceControlTest, ADeviceThatGoesBeforeItPlayedWasNotLost) {
  want();
  ASSERT_TRUE(card.open());
  card.breakDown();
  time.settle();
  EXPECT_FALSE(card.open());
  EXPECT_EQ(lost, 0);
}

TEST_F(DeviceControlTest, ADeviceThatStandsStillIsLost) {
  want();
  run(500);
  time.advance(1500 * kMillisecond);
  EXPECT_EQ(lost, 1);
  EXPECT_FALSE(card.open());
}

TEST_F(DeviceControlTest, ClosingCallsNoEventAndTakesTheRightToRender) {
  want();
  run(500);
  close();
  EXPECT_EQ(lost, 0);
  EXPECT_FALSE(card.open());
  EXPECT_FALSE(isPlaying());
  EXPECT_FALSE(mixer->gate().tryEnter(2));
}

TEST_F(DeviceControlTest, TheClockGoesOnAtTheHostsPaceWithoutADevice) {
  want();
  run(500);
  for (int i = 0; i < 500; ++i) {  // a device that is a little fast
    card.play(10 * kFramesPerMillisecond + 1);
    time.advance(10 * kMillisecond);
  }
  close();
  const int64_t before = clock->nanosecondsAtHostTime(TimeSource::now());
  time.advance(1000 * kMillisecond);
  EXPECT_EQ(clock->nanosecondsAtHostTime(TimeSource::now()) - before, 1000 * kMillisecond);
}

TEST_F(DeviceControlTest, ADeviceThatOpensAfterAllWasClosedIsClosedAtOnce) {
  onQueue([this] {
    control->want();
    control->close();
  });
  EXPECT_FALSE(card.open());
  EXPECT_FALSE(isPlaying());
  EXPECT_EQ(polled, 0);
  want();
  EXPECT_TRUE(card.open());
}

TEST_F(DeviceControlTest, ClosesTheDeviceWhenItGoes) {
  want();
  run(500);
  onQueue([this] { control.reset(); });
  EXPECT_FALSE(card.open());
  EXPECT_EQ(lost, 0);
  card.breakDown();
  time.settle();
}

/// Time that is moved without waiting for workers, of which one hangs.
class BareTime final : public TimeSource {
 public:
  BareTime() { replace(this); }
  ~BareTime() override { replace(nullptr); }
  [[nodiscard]] int64_t nanoseconds() const override { return now_; }
  void setAlarm(int64_t deadline, std::function<void()> ring) override {
    deadline_ = deadline;
    ring_ = std::move(ring);
  }
  void advance(int64_t span) {
    now_ += span;
    while (ring_ && deadline_ <= now_) std::exchange(ring_, nullptr)();
  }

 private:
  std::atomic<int64_t> now_{ManualTime::kStart};
  int64_t deadline_ = 0;
  std::function<void()> ring_;
};

/// A device that hangs where the test wants it to, until it lets it go. Control is a queue that the
/// test runs by hand, so that nothing of it waits for the device.
class HangingDeviceTest : public testing::Test {
 protected:
  enum class Where { Opening, Answering };

  ~HangingDeviceTest() override {
    control.reset();
    letGo();
    dispatch_wait_until_idle();
    runControl();  // what is left there refers to the queue
    dispatch_wait_until_idle();
  }

  void create(Where where) {
    control = std::make_shared<DeviceControl>(
        mixer, clock, kRate, queue,
        [this, where](int, AudioDeviceClient&) -> std::unique_ptr<AudioDevice> {
          ++opened;
          if (where == Where::Opening) hang();
          return std::make_unique<Device>(*this);
        });
    control->setEvents({.playing = [] {}, .lost = [] {}, .polled = [] {}});
  }
  void runControl() { queue->runAll(); }
  void hang() {
    hangs.set_value();
    released.wait();
  }
  void letGo() {
    if (!std::exchange(wasLetGo, true)) release.set_value();
  }

  struct Device final : AudioDevice {
    explicit Device(HangingDeviceTest& test_) : test(test_) { ++test.alive; }
    ~Device() override { --test.alive; }
    bool start() override { return true; }
    std::optional<int64_t> framesHeard() override {
      test.hang();
      return 0;
    }
    HangingDeviceTest& test;
  };

  BareTime time;
  std::promise<void> hangs, release;
  std::shared_future<void> released = release.get_future().share();
  bool wasLetGo = false;
  std::atomic<int> opened{0}, alive{0};
  std::shared_ptr<AudioMixer> mixer = std::make_shared<AudioMixer>();
  std::shared_ptr<CMAudioClock> clock = CMAudioClock::create();
  std::shared_ptr<HeldQueue> queue = std::make_shared<HeldQueue>();
  std::shared_ptr<DeviceControl> control;
};

TEST_F(HangingDeviceTest, ADeviceThatDoesNotAnswerCountsAsFailedAfterTwoSeconds) {
  create(Where::Answering);
  queue->async([this] { control->want(); });
  runControl();
  dispatch_wait_until_idle();  // it is open
  runControl();
  time.advance(DeviceControl::kSettlingPoll);
  runControl();  // it is asked
  hangs.get_future().wait();
  time.advance(DeviceControl::kLongestAnswer - DeviceControl::kSettlingPoll);
  runControl();
  time.advance(DeviceControl::kShortestPause);
  queue->async([this] { control->want(); });
  runControl();
  EXPECT_EQ(opened, 1) << "it has some time left";
  time.advance(DeviceControl::kSettlingPoll);
  runControl();
  time.advance(DeviceControl::kShortestPause);
  queue->async([this] { control->want(); });
  runControl();
  letGo();
  dispatch_wait_until_idle();
  EXPECT_EQ(opened, 2) << "another was opened while the first one hung";
  EXPECT_EQ(alive, 1) << "the first one is closed once it lets itself be";
}

TEST_F(HangingDeviceTest, ADeviceThatDoesNotOpenCountsAsFailedAfterTenSeconds) {
  create(Where::Opening);
  const auto want = [this] {
    queue->async([this] { control->want(); });
    runControl();
  };
  want();
  hangs.get_future().wait();
  time.advance(DeviceControl::kLongestOpening - 1);
  want();
  EXPECT_EQ(opened, 1);
  time.advance(1);
  want();
  time.advance(DeviceControl::kShortestPause);
  hangs = {};
  want();
  hangs.get_future().wait();
  EXPECT_EQ(opened, 2);
  letGo();
  dispatch_wait_until_idle();
  runControl();
  dispatch_wait_until_idle();
  EXPECT_EQ(alive, 1) << "what opened too late is closed";
}

}  // namespace
}  // namespace zaffo::media
