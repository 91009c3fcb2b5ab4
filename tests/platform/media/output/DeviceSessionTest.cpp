// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/DeviceSession.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "doubles/HeldQueue.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;
constexpr int64_t kBlock = 480;
constexpr RenderGate::Owner kOwner = 2;

/// A device that says what the test wants it to say.
struct Bench {
  [[nodiscard]] OpenAudioDevice opener() {
    return [this](int sampleRate, AudioDeviceClient&) -> std::unique_ptr<AudioDevice> {
      rate = sampleRate;
      return exists ? std::make_unique<Device>(*this) : nullptr;
    };
  }

  struct Device final : AudioDevice {
    explicit Device(Bench& bench_) : bench(bench_) { bench.open = true; }
    ~Device() override { bench.open = false; }
    bool start() override { return bench.starts; }
    std::optional<int64_t> framesHeard() override { return bench.heard; }
    Bench& bench;
  };

  bool exists = true;
  bool starts = true;
  bool open = false;
  int rate = 0;
  std::optional<int64_t> heard = 0;
};

class DeviceSessionTest : public testing::Test {
 protected:
  /// An input of the mix that is 1 in every frame.
  void playOnes() {
    input = mixer->add(kRate);
    input->restart(0);
    input->write(std::vector<float>(static_cast<size_t>(2 * kRate), 1.0f));
  }
  /// What the device is given for its next block.
  static std::vector<float> ask(DeviceSession& session, int64_t frames = kBlock) {
    std::vector<float> out(static_cast<size_t>(2 * frames), 9.0f);
    session.fill(out);
    return out;
  }

  // What belongs on the session's queue.
  void onQueue(DispatchBlock block) {
    queue->async(std::move(block));
    queue->runAll();
  }
  bool open() {
    bool isOpen = false;
    onQueue([&] { isOpen = session.open(bench.opener(), kRate); });
    return isOpen;
  }
  std::optional<int64_t> framesHeard() {
    std::optional<int64_t> heard;
    onQueue([&] { heard = session.framesHeard(); });
    return heard;
  }

  Bench bench;
  std::shared_ptr<AudioMixer> mixer = std::make_shared<AudioMixer>();
  std::shared_ptr<InputChannel> input;
  std::atomic<int> failures{0};
  std::shared_ptr<HeldQueue> queue = std::make_shared<HeldQueue>();
  DeviceSession session{mixer, kOwner, queue, [this] { ++failures; }};
};

TEST_F(DeviceSessionTest, GivesSilenceUntilItTakesOver) {
  playOnes();
  EXPECT_EQ(ask(session), std::vector<float>(2 * kBlock, 0.0f));
  EXPECT_EQ(mixer->nextFrame(), 0);
  session.takeOver();
  EXPECT_EQ(ask(session).back(), 1.0f);
  EXPECT_EQ(mixer->nextFrame(), 2 * kBlock);
}

TEST_F(DeviceSessionTest, ItsFramesStandForThoseFromItsOffsetOn) {
  (void)ask(session);
  (void)ask(session);
  session.setOffset(10'000);
  session.takeOver();
  (void)ask(session, 100);
  EXPECT_EQ(mixer->nextFrame(), 10'000 + 2 * kBlock + 100);
  session.setOffset(10'050);
  (void)ask(session, 100);
  EXPECT_EQ(mixer->nextFrame(), 10'050 + 2 * kBlock + 200);
}

TEST_F(DeviceSessionTest, TheSessionThatTookOverLastRendersAlone) {
  DeviceSession other(mixer, kOwner + 1, queue, [] {});
  playOnes();
  session.takeOver();
  other.takeOver();
  EXPECT_EQ(ask(session), std::vector<float>(2 * kBlock, 0.0f));
  EXPECT_EQ(ask(other).back(), 1.0f);
}

TEST_F(DeviceSessionTest, OpensTheDeviceAtTheRateOfTheOutput) {
  EXPECT_TRUE(open());
  EXPECT_TRUE(bench.open);
  EXPECT_EQ(bench.rate, kRate);
}

TEST_F(DeviceSessionTest, IsNotOpenWithoutADeviceOrOneThatDoesNotStart) {
  bench.exists = false;
  EXPECT_FALSE(open());
  bench.exists = true;
  bench.starts = false;
  EXPECT_FALSE(open());
}

TEST_F(DeviceSessionTest, ClosesTheDevice) {
  ASSERT_TRUE(open());
  onQueue([this] { session.close(); });
  EXPECT_FALSE(bench.open);
  EXPECT_EQ(framesHeard(), std::nullopt);
}

TEST_F(DeviceSessionTest, DoesNotKnowWhatADeviceCannotTell) {
  EXPECT_EQ(framesHeard(), std::nullopt);
  ASSERT_TRUE(open());
  bench.heard = std::nullopt;
  EXPECT_EQ(framesHeard(), std::nullopt);
}

TEST_F(DeviceSessionTest, NoMoreWasHeardThanWasGiven) {
  ASSERT_TRUE(open());
  bench.heard = 20'000;
  EXPECT_EQ(framesHeard(), 0);
  (void)ask(session);
  bench.heard = 300;
  EXPECT_EQ(framesHeard(), 300);
  bench.heard = kBlock + 1;
  EXPECT_EQ(framesHeard(), 300);
  (void)ask(session);
  EXPECT_EQ(framesHeard(), kBlock + 1);
}

TEST_F(DeviceSessionTest, AllThatWasGivenMayHaveBeenHeard) {
  ASSERT_TRUE(open());
  (void)ask(session);
  bench.heard = kBlock;
  EXPECT_EQ(framesHeard(), kBlock);
}

TEST_F(DeviceSessionTest, ADeviceThatGivesUpIsToldOnceHoweverOftenItSaysSo) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int j = 0; j < 100; ++j) session.deviceFailed();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 1);
}

TEST_F(DeviceSessionTest, TheRightChangesHandsWhileBothDevicesAsk) {
  DeviceSession other(mixer, kOwner + 1, queue, [] {});
  std::atomic<bool> done{false};
  std::vector<std::thread> devices;
  for (DeviceSession* device : {&session, &other}) {
    devices.emplace_back([device, &done] {
      while (!done.load()) {
        (void)ask(*device, 64);
        std::this_thread::yield();
      }
    });
  }
  int64_t last = 0;
  int backwards = 0;
  for (int i = 0; i < 200; ++i) {
    DeviceSession& next = i % 2 == 0 ? other : session;
    next.setOffset(mixer->nextFrame());
    next.takeOver();
    const int64_t frame = mixer->nextFrame();
    if (frame < last) ++backwards;
    last = frame;
    std::this_thread::yield();
  }
  while (mixer->nextFrame() == 0) std::this_thread::yield();
  done.store(true);
  for (std::thread& device : devices) device.join();
  EXPECT_EQ(backwards, 0);
}

}  // namespace
}  // namespace zaffo::media
