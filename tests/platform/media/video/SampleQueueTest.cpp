// SPDX-License-Identifier: Apache-2.0
#include "platform/media/video/SampleQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "platform/media/SampleBuffers.h"

namespace zaffo::media {
namespace {

CMTime frames(int count) {
  return CMTimeMake(count, 30);
}

class SampleQueueTest : public testing::Test {
 protected:
  SampleQueueTest() {
    CodecParametersPtr parameters(avcodec_parameters_alloc());
    parameters->width = 20;
    parameters->height = 10;
    format_ = makeFormatDescription(*parameters);
  }

  static Sample sample(int decode, int presentation, bool sync, int bytes) {
    Sample made;
    made.packet.reset(av_packet_alloc());
    EXPECT_EQ(av_new_packet(made.packet.get(), bytes), 0);
    made.decode = frames(decode);
    made.presentation = frames(presentation);
    made.sync = sync;
    return made;
  }
  bool push(Sample made) { return queue_.push({std::move(made), format_}); }
  bool push(int presentation, bool sync = false) {
    return push(sample(presentation, presentation, sync, 10));
  }
  /// Samples [first, end), of which every fifth one is sync.
  void pushRange(int first, int end) {
    for (int i = first; i < end; ++i) (void)push(i, i % 5 == 0);
  }
  void send(int count) {
    for (; count > 0; --count) queue_.markSent(queue_.generation());
  }
  [[nodiscard]] SampleQueue::Outlook outlook(CMTime after, CMTime now) {
    return queue_.outlook(queue_.generation(), after, now);
  }
  /// The presentation, in frames, of the sample that is sent next.
  [[nodiscard]] int64_t next() {
    const QueuedSamplePtr queued = queue_.next(queue_.generation());
    return queued ? queued->sample.presentation.value : -1;
  }

  std::shared_ptr<const CMFormatDescription> format_;
  SampleQueue queue_;
};

TEST_F(SampleQueueTest, GivesSamplesInTheOrderTheyCame) {
  pushRange(0, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(next(), i);
    send(1);
  }
  EXPECT_EQ(next(), -1);
}

TEST_F(SampleQueueTest, TellsOfASampleThatWasAskedForInVain) {
  EXPECT_TRUE(push(0, true)) << "the first one is";
  EXPECT_FALSE(push(1));
  send(2);
  EXPECT_EQ(next(), -1);
  EXPECT_TRUE(push(2));
  EXPECT_FALSE(push(3));
}

TEST_F(SampleQueueTest, TellsOfASampleThatStartsAnewOrIsToBeShownAtOnce) {
  (void)push(0, true);
  Sample anew = sample(1, 1, true, 10);
  anew.isDiscontinuity = true;
  EXPECT_TRUE(push(std::move(anew)));
  EXPECT_TRUE(queue_.push({sample(2, 2, false, 10), format_, true}));
  EXPECT_FALSE(push(3));
}

TEST_F(SampleQueueTest, TheLatestOfWhatWaitsUpToATimeIsDue) {
  pushRange(0, 10);
  EXPECT_EQ(outlook(kCMTimeInvalid, frames(3)).due, frames(3));
  EXPECT_EQ(outlook(frames(2), frames(3)).due, frames(3));
  EXPECT_TRUE(CMTIME_IS_INVALID(outlook(frames(3), frames(3)).due));
  send(5);
  EXPECT_TRUE(CMTIME_IS_INVALID(outlook(kCMTimeInvalid, frames(3)).due));
}

TEST_F(SampleQueueTest, WhatIsNotToBeShownIsNeverDue) {
  Sample hidden = sample(0, 0, true, 10);
  hidden.decodeOnly = true;
  (void)push(std::move(hidden));
  EXPECT_TRUE(CMTIME_IS_INVALID(outlook(kCMTimeInvalid, frames(3)).due));
}

TEST_F(SampleQueueTest, IsCompleteUpToATimeOnceALaterSampleIsDecoded) {
  pushRange(0, 4);
  EXPECT_FALSE(outlook(kCMTimeInvalid, frames(3)).complete);
  EXPECT_TRUE(push(4)) << "while it is not, every sample counts";
  EXPECT_TRUE(outlook(kCMTimeInvalid, frames(3)).complete);
  send(5);
  EXPECT_TRUE(outlook(kCMTimeInvalid, frames(3)).complete) << "it stays so";
  EXPECT_FALSE(outlook(kCMTimeInvalid, frames(4)).complete);
}

TEST_F(SampleQueueTest, WhatLiesBeforeTheSyncSampleOfWhatIsDueIsSkipped) {
  pushRange(0, 14);
  EXPECT_EQ(outlook(kCMTimeInvalid, frames(4)).skippable, 0u);
  EXPECT_EQ(outlook(kCMTimeInvalid, frames(12)).skippable, 10u);
  EXPECT_EQ(queue_.skip(queue_.generation(), 10), 10u);
  EXPECT_EQ(next(), 10);
  EXPECT_EQ(queue_.pixelsToDecodeAgain(), 0);
}

TEST_F(SampleQueueTest, WhatLeadsUpToASyncSampleNeedsTheOneBeforeThat) {
  (void)push(sample(0, 0, true, 10));
  (void)push(sample(1, 1, false, 10));
  (void)push(sample(2, 4, true, 10));
  (void)push(sample(3, 3, false, 10));
  (void)push(sample(5, 5, false, 10));
  EXPECT_EQ(outlook(kCMTimeInvalid, frames(3)).skippable, 0u);
  EXPECT_EQ(outlook(kCMTimeInvalid, frames(4)).skippable, 2u);
}

TEST_F(SampleQueueTest, GoesBackToTheSyncSampleThatIsKept) {
  pushRange(0, 4);
  send(3);
  EXPECT_EQ(queue_.pixelsToDecodeAgain(), 3 * 20 * 10);
  EXPECT_TRUE(queue_.rewind(queue_.generation()));
  EXPECT_EQ(next(), 0);
  send(3);
  EXPECT_FALSE(queue_.rewindTo(queue_.generation(), frames(-1)));
  EXPECT_EQ(next(), 3);
  EXPECT_TRUE(queue_.rewindTo(queue_.generation(), frames(1)));
  EXPECT_EQ(next(), 0);
}

TEST_F(SampleQueueTest, DoesNotGoBackToWhereDecodingCannotStart) {
  (void)push(1);
  (void)push(2);
  send(1);
  EXPECT_FALSE(queue_.rewind(queue_.generation()));
  EXPECT_EQ(next(), 2);
  EXPECT_EQ(queue_.pixelsToDecodeAgain(), std::numeric_limits<int64_t>::max());
}

TEST_F(SampleQueueTest, KeepsWhatThePictureOnShowIsDecodedFrom) {
  pushRange(0, 12);
  send(12);
  queue_.trim(queue_.generation(), kCMTimeInvalid);
  queue_.trim(queue_.generation(), frames(4));
  EXPECT_EQ(queue_.pixelsToDecodeAgain(), 12 * 20 * 10);
  queue_.trim(queue_.generation(), frames(7));
  EXPECT_EQ(queue_.pixelsToDecodeAgain(), 7 * 20 * 10);
  EXPECT_TRUE(queue_.rewind(queue_.generation()));
  EXPECT_EQ(next(), 5);
}

TEST_F(SampleQueueTest, ForgetsAllThatWasSentWhenToldTo) {
  pushRange(0, 8);
  send(6);
  queue_.forgetSent(queue_.generation());
  EXPECT_EQ(next(), 6);
  EXPECT_EQ(queue_.pixelsToDecodeAgain(), 0);
  EXPECT_FALSE(queue_.rewind(queue_.generation()));
}

TEST_F(SampleQueueTest, KeepsNoMoreThanEightMebibytes) {
  constexpr int kMebibyte = 1 << 20;
  for (int i = 0; i < 9; ++i) (void)push(sample(i, i, i == 0, kMebibyte));
  send(7);
  EXPECT_TRUE(queue_.rewind(queue_.generation()));
  send(8);
  EXPECT_FALSE(queue_.rewind(queue_.generation()));
  EXPECT_EQ(next(), 8);
}

TEST_F(SampleQueueTest, HasRoomForFourSecondsAndAmpleRoomForThree) {
  EXPECT_TRUE(queue_.hasRoom(kCMTimeZero));
  (void)push(0, true);
  (void)push(90);
  EXPECT_TRUE(queue_.hasAmpleRoom(kCMTimeZero));
  (void)push(91);
  EXPECT_FALSE(queue_.hasAmpleRoom(kCMTimeZero));
  (void)push(119);
  EXPECT_TRUE(queue_.hasRoom(kCMTimeZero));
  (void)push(120);
  EXPECT_FALSE(queue_.hasRoom(kCMTimeZero));
  EXPECT_TRUE(queue_.hasRoom(frames(1))) << "as time goes on";
  send(5);
  EXPECT_TRUE(queue_.hasRoom(kCMTimeZero)) << "when all was sent";
}

TEST_F(SampleQueueTest, HasRoomForSixteenMebibytesAndAmpleRoomForTwelve) {
  constexpr int kMebibyte = 1 << 20;
  for (int i = 0; i < 11; ++i) (void)push(sample(i, i, i == 0, kMebibyte));
  EXPECT_TRUE(queue_.hasAmpleRoom(kCMTimeZero));
  (void)push(sample(11, 11, false, kMebibyte));
  EXPECT_FALSE(queue_.hasAmpleRoom(kCMTimeZero));
  for (int i = 12; i < 15; ++i) (void)push(sample(i, i, false, kMebibyte));
  EXPECT_TRUE(queue_.hasRoom(kCMTimeZero));
  (void)push(sample(15, 15, false, kMebibyte));
  EXPECT_FALSE(queue_.hasRoom(kCMTimeZero));
}

TEST_F(SampleQueueTest, AFlushBeginsAGenerationAndEndsTheOneBefore) {
  pushRange(0, 5);
  const uint64_t before = queue_.generation();
  const SampleQueue::Held held = queue_.flush();
  EXPECT_EQ(held.size(), 5u);
  EXPECT_NE(queue_.generation(), before);
  EXPECT_EQ(next(), -1);
  pushRange(0, 5);
  EXPECT_TRUE(queue_.outlook(before, kCMTimeInvalid, frames(3)).stale);
  EXPECT_FALSE(outlook(kCMTimeInvalid, frames(3)).stale);
  EXPECT_EQ(queue_.next(before), nullptr);
  queue_.markSent(before);
  queue_.forgetSent(before);
  EXPECT_EQ(queue_.skip(before, 3), 0u);
  EXPECT_EQ(next(), 0) << "what is said for the one before is not heard";
  EXPECT_FALSE(queue_.rewind(before));
  EXPECT_FALSE(queue_.rewindTo(before, frames(3)));
}

}  // namespace
}  // namespace zaffo::media
