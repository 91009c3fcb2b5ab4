// SPDX-License-Identifier: Apache-2.0
#include "platform/media/output/MixedInput.h"

#include <gtest/gtest.h>

#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAudioDevice.h"
#include "platform/media/output/AudioOutputEngine.h"

namespace zaffo::media {
namespace {

constexpr int64_t kCapacity = 4096;  // a whole ring

/// An input in a mix, beside an output that has no device.
class MixedInputTest : public testing::Test {
 protected:
  MixedInputTest() {
    card_.plugged = false;
    engine_ = AudioOutputEngine::create(dispatch_queue_create("test.audio"), card_.opener());
    input_ = std::make_unique<MixedInput>(mixer_, mixer_->add(kCapacity), engine_);
    time_.settle();
  }

  /// The left sample in the middle of the next frames, after the fades.
  float render() {
    std::vector<float> out(2 * kCapacity);
    mixer_->gate().passTo(1);
    EXPECT_TRUE(mixer_->gate().tryEnter(1));
    mixer_->render(mixer_->nextFrame(), out);
    mixer_->gate().leave();
    return out[kCapacity];
  }

  ManualTime time_;
  ScriptedAudioDevice card_;
  std::shared_ptr<AudioOutputEngine> engine_;
  std::shared_ptr<AudioMixer> mixer_ = std::make_shared<AudioMixer>();
  std::unique_ptr<MixedInput> input_;
};

TEST_F(MixedInputTest, WhatIsWrittenAfterARestartIsHeard) {
  input_->restart(0);
  EXPECT_EQ(input_->nextOutputFrame(), 0);
  EXPECT_EQ(input_->writable(), kCapacity);
  EXPECT_EQ(input_->write(std::vector<float>(2 * kCapacity, 0.5f)), kCapacity);
  EXPECT_EQ(input_->writable(), 0);
  EXPECT_FLOAT_EQ(render(), 0.5f);
}

TEST_F(MixedInputTest, ARestartSetsTheOutputGoing) {
  ASSERT_FALSE(engine_->rendering());
  input_->restart(engine_->earliestStartFrame());
  time_.settle();
  EXPECT_TRUE(engine_->rendering());
}

TEST_F(MixedInputTest, LeavesTheMixWhenItGoes) {
  ASSERT_EQ(mixer_->inputCount(), 1u);
  input_ = nullptr;
  mixer_->sweep();
  EXPECT_EQ(mixer_->inputCount(), 0u);
}

TEST_F(MixedInputTest, MayOutliveTheOutput) {
  engine_ = nullptr;
  input_->restart(0);
  EXPECT_EQ(input_->write(std::vector<float>(2 * kCapacity, 0.5f)), kCapacity);
  EXPECT_FLOAT_EQ(render(), 0.5f);
  input_ = nullptr;
  render();
  mixer_->sweep();
  EXPECT_EQ(mixer_->inputCount(), 0u);
}

}  // namespace
}  // namespace zaffo::media
