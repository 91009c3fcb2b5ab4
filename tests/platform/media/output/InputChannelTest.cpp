// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/InputChannel.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include "doubles/TestSeed.h"

namespace zaffo::media {
namespace {

constexpr int64_t kCapacity = 1024;
constexpr int64_t kBlock = 256;

std::vector<float> constant(int64_t frames, float value) {
  return std::vector<float>(static_cast<size_t>(2 * frames), value);
}

/// A channel that is rendered block by block, as the mixer does.
class InputChannelTest : public testing::Test {
 protected:
  /// Renders the next frames and returns their left samples.
  std::vector<float> render(int64_t frames) {
    std::vector<float> left;
    for (int64_t done = 0; done < frames; done += kBlock) {
      const int64_t count = std::min(kBlock, frames - done);
      std::vector<float> out = constant(count, 0.0f);
      used = channel.mix(consumed, out);
      consumed += count;
      for (size_t i = 0; i < out.size(); i += 2) left.push_back(out[i]);
    }
    return left;
  }
  std::vector<float> renderPause(int64_t frames) {
    std::vector<float> out = constant(frames, 0.0f), left;
    channel.mixPause(out);
    for (size_t i = 0; i < out.size(); i += 2) left.push_back(out[i]);
    return left;
  }

  std::atomic<int64_t> consumed{0};
  InputChannel channel{kCapacity, consumed};
  bool used = false;
};

TEST_F(InputChannelTest, TakesNothingBeforeItsFirstRestart) {
  EXPECT_EQ(channel.writable(), 0);
  EXPECT_EQ(channel.write(constant(10, 1.0f)), 0);
  EXPECT_EQ(channel.nextOutputFrame(), 0);
  EXPECT_TRUE(channel.silent());
  render(kBlock);
  EXPECT_FALSE(used);
}

TEST_F(InputChannelTest, IsInUseFromARestartOnWhetherOrNotAnythingIsWritten) {
  channel.restart(0);
  EXPECT_FALSE(channel.silent());
  render(10 * kBlock);
  EXPECT_TRUE(used);
  EXPECT_FALSE(channel.silent());
}

TEST_F(InputChannelTest, IsSilentOnceItHasFadedOutAfterAStop) {
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  render(kBlock);
  channel.stop();
  EXPECT_FALSE(channel.silent());
  render(kBlock);
  render(kBlock);
  EXPECT_FALSE(used);
  EXPECT_TRUE(channel.silent());
}

TEST_F(InputChannelTest, WhatIsStoppedBeforeItWasRenderedIsNeverHeard) {
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  channel.stop();
  EXPECT_EQ(render(kBlock), std::vector<float>(kBlock, 0.0f));
  EXPECT_TRUE(channel.silent());
}

TEST_F(InputChannelTest, AStopEndsWhatWasStartedBeforeItAlone) {
  channel.restart(0);
  channel.stop();
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  EXPECT_FALSE(channel.silent());
  EXPECT_EQ(render(2 * kBlock).back(), 1.0f);
  channel.stop();
  channel.stop();
  EXPECT_EQ(render(2 * kBlock).back(), 0.0f);
  channel.restart(consumed);
  channel.write(constant(kCapacity, 0.5f));
  EXPECT_EQ(render(2 * kBlock).back(), 0.5f);
}

TEST_F(InputChannelTest, OnlyTheLastOfSeveralRestartsIsHeard) {
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  render(2 * kBlock);
  for (const float value : {0.25f, 0.75f, 0.5f}) {
    channel.restart(consumed);
    EXPECT_EQ(channel.nextOutputFrame(), consumed);
    EXPECT_EQ(channel.write(constant(kCapacity, value)), kCapacity);
  }
  EXPECT_EQ(render(2 * kBlock).back(), 0.5f);
}

TEST_F(InputChannelTest, WhatIsWrittenAfterARestartLeavesWhatSoundsAlone) {
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  render(2 * kBlock);
  channel.restart(consumed);
  channel.write(constant(kCapacity, 1.0f));
  for (const float sample : render(2 * kBlock)) ASSERT_NEAR(sample, 1.0f, 0.01f);
}

TEST_F(InputChannelTest, WhatSoundedFadesOutAsItWasWritten) {
  std::vector<float> alternating = constant(kCapacity, 0.5f);
  for (size_t i = 0; i < alternating.size(); i += 4) alternating[i] = alternating[i + 1] = -0.5f;
  channel.restart(0);
  channel.write(alternating);
  render(2 * kBlock);
  channel.restart(consumed);
  const std::vector<float> fade = render(kBlock);
  for (size_t i = 0; i < kFadeFrames; ++i) {
    const float gain = 1.0f - static_cast<float>(i + 1) / (kFadeFrames + 1);
    ASSERT_NEAR(fade[i], (i % 2 == 0 ? -0.5f : 0.5f) * gain, 1e-5f) << i;
  }
}

TEST_F(InputChannelTest, RunsDownWhereNothingMoreWasWritten) {
  channel.restart(0);
  channel.write(constant(kBlock + 100, 1.0f));
  render(kBlock);
  const std::vector<float> dry = render(2 * kBlock);
  EXPECT_EQ(dry[99], 1.0f);
  EXPECT_NEAR(dry[100], 1.0f, 0.01f);
  EXPECT_NEAR(dry[100 + kFadeFrames / 2], 0.5f, 0.01f);
  EXPECT_EQ(dry[100 + kFadeFrames], 0.0f);
}

TEST_F(InputChannelTest, WhereFramesAreSkippedWhatWouldHaveSoundedRunsDown) {
  channel.restart(0);
  std::vector<float> samples = constant(kCapacity, 1.0f);
  std::fill(samples.begin() + 4 * kBlock, samples.end(), -1.0f);
  channel.write(samples);
  render(kBlock);
  consumed += kBlock;
  const std::vector<float> behind = render(kBlock);
  EXPECT_GT(behind.front(), 0.97f);
  EXPECT_EQ(behind.back(), -1.0f);
}

/// What the heap holds; 0 under a sanitizer, which keeps a heap of its own.
size_t heapBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST_F(InputChannelTest, HoldsNoMoreThanTwoRunsHoweverManyThereWere) {
  constexpr int64_t kLarge = 1 << 16;
  constexpr size_t kRingBytes = 2 * kLarge * sizeof(float);
  InputChannel large(kLarge, consumed);
  std::vector<float> out = constant(kBlock, 0.0f);
  const size_t before = heapBytes();
  for (int run = 0; run < 50; ++run) {
    large.restart(consumed);
    if (run % 3 == 0) large.restart(consumed);
    large.mix(consumed, out);
    consumed += kBlock;
  }
  EXPECT_LT(heapBytes(), before + 3 * kRingBytes);
}

TEST_F(InputChannelTest, RunsOfAnyNumberFollowOneAnother) {
  for (int run = 1; run <= 20; ++run) {
    const float value = static_cast<float>(run) / 32.0f;
    channel.restart(consumed + 10);
    ASSERT_EQ(channel.write(constant(kCapacity, value)), kCapacity);
    ASSERT_EQ(render(2 * kBlock).back(), value);
  }
}

TEST_F(InputChannelTest, RoomComesBackAsTheOutputMovesOn) {
  channel.restart(0);
  EXPECT_EQ(channel.writable(), kCapacity);
  EXPECT_EQ(channel.write(constant(2 * kCapacity, 1.0f)), kCapacity);
  EXPECT_EQ(channel.writable(), 0);
  render(kBlock);
  EXPECT_EQ(channel.writable(), kBlock);
  EXPECT_EQ(channel.nextOutputFrame(), kCapacity);
}

TEST_F(InputChannelTest, FramesWhoseTimeHasGoneByAreTakenAndDropped) {
  render(4 * kCapacity);
  channel.restart(0);
  std::vector<float> late = constant(5 * kCapacity, 0.0f);
  std::fill(late.end() - 2 * kCapacity, late.end(), 1.0f);
  EXPECT_EQ(channel.write(late), 5 * kCapacity);
  EXPECT_EQ(render(2 * kBlock).back(), 1.0f);
}

TEST_F(InputChannelTest, FadesOutIntoAPauseAndInAgainBehindIt) {
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  render(2 * kBlock);
  const std::vector<float> pause = renderPause(kBlock);
  EXPECT_GT(pause.front(), 0.98f);
  EXPECT_EQ(pause.back(), 0.0f);
  const std::vector<float> behind = render(2 * kBlock);
  EXPECT_LT(behind.front(), 0.01f);
  EXPECT_EQ(behind.back(), 1.0f);
}

TEST_F(InputChannelTest, AVolumeReachesItsValueStepByStepWhileItSounds) {
  channel.restart(0);
  channel.write(constant(kCapacity, 1.0f));
  float before = render(kBlock).back();
  channel.setVolume(0.5f);
  for (const float sample : render(kBlock)) {
    ASSERT_LE(std::abs(sample - before), 1.01f / kVolumeRampFrames);
    before = sample;
  }
  EXPECT_EQ(before, 0.5f);
}

TEST_F(InputChannelTest, FallsInTwoFadesAtOnceWhereARunDriesUpSoonAfterAnother) {
  channel.restart(0);
  channel.write(constant(2 * kBlock + 40, 1.0f));
  render(3 * kBlock);
  channel.restart(consumed);
  channel.write(constant(kBlock - 6, 1.0f));
  render(kBlock);
  channel.write(constant(100, 1.0f));
  float before = 1.0f - 6.0f / (kFadeFrames + 1), steepest = 0.0f;
  for (const float sample : render(2 * kBlock)) {
    steepest = std::max(steepest, std::abs(sample - before));
    EXPECT_LE(sample, 1.0f);
    before = sample;
  }
  EXPECT_EQ(before, 0.0f);
  EXPECT_GT(steepest, 1.2f / kFadeFrames);
  EXPECT_LT(steepest, 2.01f / kFadeFrames);
}

/// A writer that starts runs over and over beside a render side that never waits. All that is
/// written for output frame n has the same ratio of right to left, which changes with n.
class InputChannelStress : public InputChannelTest {
 protected:
  static constexpr int64_t kChange = 512;
  /// A run that dries up again within the fade of the one before falls in two fades at once.
  static constexpr float kSteepest = 2.01f / kFadeFrames;

  static float ratioAt(int64_t frame) { return frame / kChange % 2 == 0 ? 0.25f : 0.75f; }

  static std::vector<float> frames(int64_t first, int64_t count) {
    std::vector<float> samples;
    for (int64_t i = first; i < first + count; ++i) samples.insert(samples.end(), {1, ratioAt(i)});
    return samples;
  }

  /// Renders a block and looks at it.
  void renderBlock() {
    std::vector<float> out = constant(kBlock, 0.0f);
    const int64_t first = consumed.load();
    channel.mix(first, out);
    for (int64_t i = 0; i < kBlock; ++i) {
      const float left = out[static_cast<size_t>(2 * i)];
      const float right = out[static_cast<size_t>(2 * i + 1)];
      const float step = std::abs(left - last_);
      if (step > kSteepest || left < -1e-4f || left > 1.02f) ++clicks;
      // A level of exactly 1 is sound as it was written, outside of every fade.
      if (left == 1.0f && right != ratioAt(first + i)) ++misplaced;
      if (left == 1.0f) ++whole;
      last_ = left;
    }
    consumed.store(first + kBlock);
  }

  int clicks = 0;
  int misplaced = 0;
  int64_t whole = 0;

 private:
  float last_ = 0;
};

TEST_F(InputChannelStress, RunsAreHandedOverWithoutAClickAndInTheirPlace) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE(seed);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    std::mt19937 random(seed);
    for (int run = 0; run < 150; ++run) {
      channel.restart(consumed.load() + std::uniform_int_distribution(0, 400)(random));
      const int writes = std::uniform_int_distribution(1, 8)(random);
      for (int i = 0; i < writes; ++i) {
        channel.write(
            frames(channel.nextOutputFrame(), std::min<int64_t>(channel.writable(), 300)));
        std::this_thread::yield();
      }
      if (std::uniform_int_distribution(0, 4)(random) == 0) channel.stop();
    }
    done.store(true);
  });
  while (!done.load()) {
    renderBlock();
    std::this_thread::yield();
  }
  writer.join();
  channel.restart(consumed.load());
  for (int i = 0; i < 8; ++i) {
    channel.write(frames(channel.nextOutputFrame(), channel.writable()));
    renderBlock();
  }
  EXPECT_EQ(clicks, 0);
  EXPECT_EQ(misplaced, 0);
  EXPECT_GT(whole, 4 * kBlock);
  channel.stop();
  renderBlock();
  renderBlock();
  EXPECT_TRUE(channel.silent());
}

TEST_F(InputChannelStress, StopsFromAnyThreadEndNoLaterRun) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE(seed);
  std::atomic<bool> done{false};
  std::thread stopper([&] {
    std::mt19937 random(seed);
    while (!done.load()) {
      channel.stop();
      channel.setVolume(1.0f);
      const int naps = std::uniform_int_distribution(0, 20)(random);
      for (int i = 0; i < naps; ++i) std::this_thread::yield();
    }
  });
  for (int run = 0; run < 200; ++run) {
    channel.restart(consumed.load());
    channel.write(frames(consumed.load(), kCapacity));
    renderBlock();
  }
  done.store(true);
  stopper.join();
  EXPECT_EQ(clicks, 0);
  channel.restart(consumed.load());
  channel.write(frames(consumed.load(), kCapacity));
  renderBlock();
  renderBlock();
  EXPECT_FALSE(channel.silent());
  EXPECT_GT(whole, 0);
}

}  // namespace
}  // namespace zaffo::media
