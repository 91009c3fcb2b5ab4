// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/DecodeQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/media/Encoding.h"
#include "platform/media/codec/CodecContext.h"

namespace zaffo::media {
namespace {

CodecContextPtr openFor(const Encoded& encoded) {
  auto context = openCodec(*encoded.parameters, 1);
  EXPECT_TRUE(context);
  return std::move(context).valueOr(nullptr);
}

int numberOf(const AVFrame& frame) {
  return (frame.data[0][0] - kGreyOfZero + kGreyStep / 2) / kGreyStep;
}

/// The pictures that can be received, up to `result`.
std::vector<int> receiveUntil(DecodeQueue& queue, int result) {
  std::vector<int> numbers;
  FramePtr frame;
  int received = 0;
  while ((received = queue.receive(frame)) == 0) numbers.push_back(numberOf(*frame));
  EXPECT_EQ(received, result);
  return numbers;
}

std::vector<int> range(int first, int end) {
  std::vector<int> numbers;
  for (int i = first; i < end; ++i) numbers.push_back(i);
  return numbers;
}

class DecodeQueueTest : public testing::Test {
 protected:
  int send(std::size_t index) { return queue_.send(*encoded_.samples[index].packet); }
  /// Sends samples [first, end) and receives what they give.
  std::vector<int> decode(std::size_t first, std::size_t end) {
    std::vector<int> numbers;
    for (std::size_t i = first; i < end; ++i) {
      EXPECT_EQ(send(i), 0);
      const std::vector<int> more = receiveUntil(queue_, AVERROR(EAGAIN));
      numbers.insert(numbers.end(), more.begin(), more.end());
    }
    return numbers;
  }

  /// Where another group begins.
  [[nodiscard]] std::size_t secondStart() const {
    std::size_t start = 1;
    while (!encoded_.samples[start].sync) ++start;
    return start;
  }
  [[nodiscard]] int numberAt(std::size_t index) const {
    return static_cast<int>(
        CMTimeConvertScale(encoded_.samples[index].presentation, kEncodedRate).value);
  }

  const Encoded encoded_ = encodePictures({.options = "g=8;bf=2", .count = 16});
  DecodeQueue queue_{openFor(encoded_)};
};

TEST_F(DecodeQueueTest, GivesEveryPictureInTheOrderInWhichTheyAreShown) {
  std::vector<int> numbers = decode(0, 16);
  queue_.drain();
  const std::vector<int> rest = receiveUntil(queue_, AVERROR_EOF);
  EXPECT_FALSE(rest.empty());
  numbers.insert(numbers.end(), rest.begin(), rest.end());
  EXPECT_EQ(numbers, range(0, 16));
}

TEST_F(DecodeQueueTest, HasNothingToGiveBeforeItIsSentSomething) {
  FramePtr frame;
  EXPECT_EQ(queue_.receive(frame), AVERROR(EAGAIN));
  EXPECT_FALSE(frame);
}

TEST_F(DecodeQueueTest, TakesNothingWhileAPictureWaitsToBeReceived) {
  ASSERT_EQ(send(0), 0);
  ASSERT_EQ(send(1), 0);
  EXPECT_EQ(send(2), AVERROR(EAGAIN));
  EXPECT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), range(0, 1));
  EXPECT_EQ(send(2), 0);
}

TEST_F(DecodeQueueTest, TheFirstPictureComesOutWithItsSampleAlone) {
  ASSERT_EQ(send(0), 0);
  EXPECT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), range(0, 0));
  queue_.drain();
  EXPECT_EQ(receiveUntil(queue_, AVERROR_EOF), range(0, 1));
}

TEST_F(DecodeQueueTest, APacketIsDecodedUnderTheSettingsItWasSentWith) {
  ASSERT_EQ(decode(0, 2), range(0, 1));
  queue_.context().skip_frame = AVDISCARD_NONREF;
  ASSERT_EQ(send(2), 0);
  ASSERT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), range(0, 0));
  queue_.context().skip_frame = AVDISCARD_DEFAULT;
  EXPECT_EQ(decode(3, 4), range(2, 3)) << "1 was skipped, 2 was not";
}

TEST_F(DecodeQueueTest, WhatIsHeldBackComesBeforeWhatStartsAnew) {
  std::vector<int> numbers = decode(0, 4);
  queue_.startAnew();
  ASSERT_EQ(send(secondStart()), 0);
  queue_.drain();
  const std::vector<int> rest = receiveUntil(queue_, AVERROR_EOF);
  numbers.insert(numbers.end(), rest.begin(), rest.end());
  EXPECT_EQ(numbers, (std::vector<int>{0, 1, 2, 3, numberAt(secondStart())}));
}

TEST_F(DecodeQueueTest, ASampleThatStartsAnewIsTakenWhateverIsStillToBeReceived) {
  ASSERT_EQ(send(0), 0);
  ASSERT_EQ(send(1), 0);
  queue_.startAnew();
  EXPECT_EQ(send(secondStart()), 0);
  EXPECT_EQ(send(secondStart() + 1), AVERROR(EAGAIN)) << "the next one waits";
  EXPECT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), (std::vector<int>{0, 3}));
}

TEST_F(DecodeQueueTest, StartingAnewTwiceIsStartingAnewOnce) {
  (void)decode(0, 4);
  queue_.startAnew();
  queue_.startAnew();
  EXPECT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), range(3, 4));
  const int start = numberAt(secondStart());
  EXPECT_EQ(decode(secondStart(), secondStart() + 2), range(start, start + 1));
}

TEST_F(DecodeQueueTest, GoesOverToAnotherCodecWithoutALoss) {
  const Encoded other = encodePictures({.options = "g=8;bf=0", .count = 8, .size = 64});
  std::vector<int> numbers = decode(0, 4);
  queue_.startAnewWith(openFor(other));
  ASSERT_EQ(queue_.send(*other.samples[0].packet), 0);
  queue_.drain();
  std::vector<int> widths;
  FramePtr frame;
  while (queue_.receive(frame) == 0) widths.push_back(frame->width);
  EXPECT_EQ(widths, (std::vector<int>{32, 64}));
}

TEST_F(DecodeQueueTest, AFlushForgetsWhatWasDecodedAndWhatIsHeldBack) {
  ASSERT_EQ(send(0), 0);
  ASSERT_EQ(send(1), 0);
  queue_.flush();
  EXPECT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), range(0, 0));
  const int start = numberAt(secondStart());
  EXPECT_EQ(decode(secondStart(), secondStart() + 2), range(start, start + 1));
}

TEST_F(DecodeQueueTest, CanBeSentPacketsAgainAfterADrain) {
  (void)decode(0, 4);
  queue_.drain();
  (void)receiveUntil(queue_, AVERROR_EOF);
  queue_.flush();
  EXPECT_EQ(receiveUntil(queue_, AVERROR(EAGAIN)), range(0, 0));
  EXPECT_EQ(decode(0, 4), range(0, 3));
}

TEST_F(DecodeQueueTest, UsesTheFrameThatItIsGivenAgain) {
  ASSERT_EQ(send(0), 0);
  ASSERT_EQ(send(1), 0);
  FramePtr frame;
  ASSERT_EQ(queue_.receive(frame), 0);
  const AVFrame* const used = frame.get();
  bool cameBack = false;
  for (std::size_t i = 2; i < 6; ++i) {
    ASSERT_EQ(send(i), 0);
    ASSERT_EQ(queue_.receive(frame), 0);
    EXPECT_EQ(numberOf(*frame), static_cast<int>(i) - 1);
    cameBack = cameBack || frame.get() == used;
  }
  EXPECT_TRUE(cameBack);
}

/// A coded slice that says nothing that could be decoded.
void damage(Sample& sample) {
  ASSERT_GE(av_packet_make_writable(sample.packet.get()), 0);
  std::fill_n(sample.packet->data, sample.packet->size, uint8_t{0});
}

/// Eight frames in one packet, none of which can be decoded, as VP9 packs them.
PacketPtr packetOfDamagedFrames() {
  constexpr int kFrames = 8;
  constexpr uint8_t kFrameBytes = 16;
  constexpr uint8_t kMarker = 0b110'00'000 | (kFrames - 1);  // sizes of one byte each
  PacketPtr packet(av_packet_alloc());
  EXPECT_EQ(av_new_packet(packet.get(), kFrames * kFrameBytes + 1 + kFrames + 1), 0);
  uint8_t* const index = std::fill_n(packet->data, kFrames * kFrameBytes, uint8_t{0});
  *index = kMarker;
  *std::fill_n(index + 1, kFrames, kFrameBytes) = kMarker;
  return packet;
}

TEST(DamagedDecodeQueue, APacketOfManyDamagedFramesIsNotInTheWayOfTheNext) {
  const Encoded encoded = encodePictures({.codec = "libvpx-vp9", .options = "", .count = 4});
  DecodeQueue queue(openFor(encoded));
  ASSERT_EQ(queue.send(*encoded.samples[0].packet), 0);
  EXPECT_EQ(receiveUntil(queue, AVERROR(EAGAIN)), range(0, 1));
  const int sent = queue.send(*packetOfDamagedFrames());
  EXPECT_LT(sent, 0);
  EXPECT_NE(sent, AVERROR(EAGAIN));
  FramePtr frame;
  EXPECT_EQ(queue.receive(frame), AVERROR(EAGAIN)) << "one error for all of them";
  ASSERT_EQ(queue.send(*encoded.samples[1].packet), 0);
  EXPECT_EQ(receiveUntil(queue, AVERROR(EAGAIN)), range(1, 2));
}

TEST(DamagedDecodeQueue, APacketThatCannotBeDecodedIsAnErrorAndTheNextOneIsTaken) {
  Encoded encoded = encodePictures({.options = "g=1;bf=0", .count = 4});
  damage(encoded.samples[1]);
  DecodeQueue queue(openFor(encoded));
  std::vector<int> numbers;
  int errors = 0;
  FramePtr frame;
  for (const Sample& sample : encoded.samples) {
    const int sent = queue.send(*sample.packet);
    EXPECT_NE(sent, AVERROR(EAGAIN));
    errors += sent < 0;
    int received = 0;
    while ((received = queue.receive(frame)) == 0) numbers.push_back(numberOf(*frame));
    errors += received != AVERROR(EAGAIN);
  }
  EXPECT_EQ(errors, 1);
  EXPECT_EQ(numbers, (std::vector<int>{0, 2, 3}));
}

TEST(H264DecodeQueue, APictureThatFollowsAnOpenGroupsStartComesOutWhenDrained) {
  const Encoded encoded = encodePictures({.codec = "libx264",
                                          .options = "g=8;bf=2;x264-params=open-gop=1:scenecut=0",
                                          .count = 24,
                                          .closedGroups = false});
  std::size_t start = 1;
  while (start < encoded.samples.size() && !encoded.samples[start].sync) ++start;
  ASSERT_LT(start, encoded.samples.size());
  DecodeQueue queue(openFor(encoded));
  for (std::size_t i = start; i < start + 4; ++i) {
    while (queue.send(*encoded.samples[i].packet) == AVERROR(EAGAIN)) {
      FramePtr frame;
      (void)queue.receive(frame);
    }
  }
  queue.drain();
  EXPECT_FALSE(receiveUntil(queue, AVERROR_EOF).empty());
}

}  // namespace
}  // namespace zaffo::media
