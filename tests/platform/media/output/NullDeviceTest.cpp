// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/NullDevice.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "platform/coremedia/CMAudioClock.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;
constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;
constexpr int64_t kPeriod = NullDevice::kPeriodNanoseconds;

int64_t framesOf(int64_t milliseconds) {
  return milliseconds * kRate / 1000;
}

/// A null device whose owner renders at each tick.
class NullDeviceTest : public testing::Test {
 protected:
  NullDeviceTest() { clock->setAnchor(0, TimeSource::now()); }
  ~NullDeviceTest() override {
    onQueue([this] { device.stop(); });
  }

  void onQueue(DispatchBlock block) {
    queue->async(std::move(block));
    time.settle();
  }
  void start(int64_t interval = kPeriod) {
    onQueue([this, interval] {
      device.start(
          [this] {
            ++ticks;
            device.render();
          },
          interval);
      device.render();
    });
  }

  ManualTime time;
  AudioMixer mixer;
  std::shared_ptr<CMAudioClock> clock = CMAudioClock::create();
  DispatchQueuePtr queue = dispatch_queue_create("test.null");
  NullDevice device{mixer, *clock, kRate, queue};
  int ticks = 0;
};

TEST_F(NullDeviceTest, RendersOnePeriodBeyondThePresentTime) {
  start();
  EXPECT_EQ(mixer.nextFrame(), framesOf(20));
  time.advance(100 * kMillisecond);
  EXPECT_EQ(mixer.nextFrame(), framesOf(120));
}

TEST_F(NullDeviceTest, TicksOnceAPeriodWhileItRuns) {
  start();
  EXPECT_TRUE(device.running());
  time.advance(10 * kPeriod);
  EXPECT_EQ(ticks, 10);
  onQueue([this] { device.stop(); });
  EXPECT_FALSE(device.running());
  time.advance(10 * kPeriod);
  EXPECT_EQ(ticks, 10);
  EXPECT_EQ(mixer.nextFrame(), framesOf(220));
}

TEST_F(NullDeviceTest, BeginsAtThePresentTimeAfterARest) {
  start();
  onQueue([this] { device.stop(); });
  time.advance(5000 * kMillisecond);
  const auto input = mixer.add(kRate);
  input->restart(framesOf(5000));
  input->write(std::vector<float>(static_cast<size_t>(2 * framesOf(20)), 1.0f));
  start();
  EXPECT_EQ(mixer.nextFrame(), framesOf(5020));
  EXPECT_EQ(mixer.lastActiveFrame(), framesOf(5020));
}

TEST_F(NullDeviceTest, GoesOnWhereAnotherHasRenderedAhead) {
  mixer.gate().passTo(2);
  ASSERT_TRUE(mixer.gate().tryEnter(2));
  std::vector<float> ahead(static_cast<size_t>(2 * framesOf(100)));
  mixer.render(0, ahead);
  mixer.gate().leave();
  start();
  EXPECT_EQ(mixer.nextFrame(), framesOf(100));
  time.advance(200 * kMillisecond);
  EXPECT_EQ(mixer.nextFrame(), framesOf(220));
}

TEST_F(NullDeviceTest, LeavesTheFramesToWhoeverTakesTheRight) {
  start();
  onQueue([this] { mixer.gate().passTo(2); });
  time.advance(100 * kMillisecond);
  EXPECT_EQ(mixer.nextFrame(), framesOf(20));
  EXPECT_EQ(ticks, 5);
}

TEST_F(NullDeviceTest, AnotherIntervalTakesThePlaceOfTheFirst) {
  start();
  start(NullDevice::kUnheardInterval);
  time.advance(10 * NullDevice::kUnheardInterval);
  EXPECT_EQ(ticks, 10);
  EXPECT_EQ(mixer.nextFrame(), framesOf(1020));
}

TEST_F(NullDeviceTest, AStartWhileItRunsAtThatIntervalChangesNothing) {
  start();
  time.advance(kPeriod / 2);
  start();
  time.advance(kPeriod / 2);
  EXPECT_EQ(ticks, 1);
}

TEST_F(NullDeviceTest, StopsWithItsOwner) {
  auto own = std::make_unique<NullDevice>(mixer, *clock, kRate, queue);
  int ownTicks = 0;
  onQueue([&] { own->start([&ownTicks] { ++ownTicks; }, kPeriod); });
  onQueue([&] { own.reset(); });
  time.advance(10 * kPeriod);
  EXPECT_EQ(ownTicks, 0);
}

}  // namespace
}  // namespace zaffo::media
