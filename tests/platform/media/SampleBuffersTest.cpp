// SPDX-License-Identifier: Apache-2.0
#include "platform/media/SampleBuffers.h"

#include "platform/media/Decoding.h"

namespace zaffo::media {
namespace {

using test::clip;
using test::frameNumber;

class SampleBuffers : public testing::Test {
 protected:
  Sample next() {
    Sample sample;
    EXPECT_EQ(cursor_->next(sample), Outcome::Ready);
    return sample;
  }

  const std::shared_ptr<FileSampleSource> source_ = openClip(clip("h264_25.mp4"));
  const std::unique_ptr<SampleCursor> cursor_ = openTrack(*source_, AVMediaTypeVideo);
  const std::shared_ptr<const CMFormatDescription> format_ =
      makeFormatDescription(cursor_->codecParameters());
};

TEST_F(SampleBuffers, TheBytesAreThoseThatTheDemuxerRead) {
  Sample sample = next();
  const uint8_t* read = sample.packet->data;
  const auto size = static_cast<std::size_t>(sample.packet->size);
  const auto buffer = makeSampleBuffer(std::move(sample), format_);
  EXPECT_EQ(buffer->dataBuffer()->bytes().data(), read);
  EXPECT_EQ(buffer->dataBuffer()->bytes().size(), size);
  Sample back;
  ASSERT_TRUE(sampleFromBuffer(*buffer, back));
  EXPECT_EQ(back.packet->data, read);
  EXPECT_EQ(back.packet->size, static_cast<int>(size));
}

TEST_F(SampleBuffers, TheSampleKeepsTheBytesWhenTheBufferIsGone) {
  Sample sample = next();
  const std::vector<uint8_t> read(sample.packet->data, sample.packet->data + sample.packet->size);
  Sample back;
  ASSERT_TRUE(sampleFromBuffer(*makeSampleBuffer(std::move(sample), format_), back));
  EXPECT_TRUE(std::equal(read.begin(), read.end(), back.packet->data));
}

TEST_F(SampleBuffers, TimesGoThereAndBack) {
  (void)next();
  Sample sample = next();
  const CMTime presentation = sample.presentation, decode = sample.decode;
  const CMTime duration = sample.duration;
  ASSERT_NE(presentation, decode);
  const auto buffer = makeSampleBuffer(std::move(sample), format_);
  EXPECT_EQ(buffer->presentationTimeStamp(), presentation);
  EXPECT_EQ(buffer->outputPresentationTimeStamp(), presentation);
  EXPECT_EQ(buffer->decodeTimeStamp(), decode);
  EXPECT_EQ(buffer->duration(), duration);
  Sample back;
  ASSERT_TRUE(sampleFromBuffer(*buffer, back));
  EXPECT_EQ(back.presentation, presentation);
  EXPECT_EQ(back.decode, decode);
  EXPECT_EQ(back.duration, duration);
}

TEST_F(SampleBuffers, TheSampleIsPresentedAtTheBuffersOutputTime) {
  const auto buffer = makeSampleBuffer(next(), format_);
  buffer->setOutputPresentationTimeStamp(CMTimeMake(7, 2));
  Sample back;
  ASSERT_TRUE(sampleFromBuffer(*buffer, back));
  EXPECT_EQ(back.presentation, CMTimeMake(7, 2));
}

TEST_F(SampleBuffers, MarksGoThereAndBack) {
  for (const bool sync : {false, true}) {
    for (const bool shown : {false, true}) {
      for (const bool isDiscontinuity : {false, true}) {
        Sample sample = next();
        sample.sync = sync;
        sample.decodeOnly = !shown;
        sample.isDiscontinuity = isDiscontinuity;
        const auto buffer = makeSampleBuffer(std::move(sample), format_);
        EXPECT_EQ(buffer->attachments().notSync, !sync);
        EXPECT_EQ(buffer->attachments().doNotDisplay, !shown);
        EXPECT_FALSE(buffer->attachments().displayImmediately);
        EXPECT_EQ(buffer->resetsDecoderBeforeDecoding(), isDiscontinuity);
        Sample back;
        ASSERT_TRUE(sampleFromBuffer(*buffer, back));
        EXPECT_EQ(back.sync, sync);
        EXPECT_EQ(!back.decodeOnly, shown);
        EXPECT_EQ(back.isDiscontinuity, isDiscontinuity);
      }
    }
  }
}

TEST_F(SampleBuffers, APlainSyncSampleCarriesNoAttachments) {
  EXPECT_EQ(makeSampleBuffer(next(), format_)->sampleAttachmentsArray(false), nullptr);
}

TEST_F(SampleBuffers, ADescriptionTellsTheCodecAndTheSize) {
  EXPECT_EQ(format_->codec(), "h264");
  EXPECT_EQ(format_->width(), 192);
  EXPECT_EQ(format_->height(), 108);
}

TEST_F(SampleBuffers, ADescriptionOutlivesWhatItWasMadeOf) {
  auto source = openClip(clip("h264_25.mp4"));
  auto cursor = openTrack(*source, AVMediaTypeVideo);
  const auto format = makeFormatDescription(cursor->codecParameters());
  cursor.reset();
  source.reset();
  ASSERT_NE(codecParametersOf(*format), nullptr);
  EXPECT_EQ(*codecConfigOf(*format), *codecConfigOf(*format_));
}

TEST_F(SampleBuffers, ADecoderTakesWhatCameBack) {
  const auto decoder = VideoDecoder::open(*codecParametersOf(*format_)).valueOr(nullptr);
  ASSERT_TRUE(decoder);
  Sample back;
  ASSERT_TRUE(sampleFromBuffer(*makeSampleBuffer(next(), format_), back));
  ASSERT_EQ(decoder->send(back), Outcome::Ready);
  decoder->drain();
  VideoFrame frame;
  ASSERT_EQ(decoder->receive(frame), Outcome::Ready);
  EXPECT_EQ(frameNumber(frame.buffer), 0);
}

class ForeignBlock final : public CMBlockBuffer {
 public:
  [[nodiscard]] std::span<const uint8_t> bytes() const override { return {}; }
};

class ForeignDescription final : public CMFormatDescription {
 public:
  [[nodiscard]] const std::string& codec() const override { return codec_; }
  [[nodiscard]] int width() const override { return 1; }
  [[nodiscard]] int height() const override { return 1; }

 private:
  const std::string codec_ = "h264";
};

TEST_F(SampleBuffers, WhatWasNotMadeHereHoldsNoSampleAndNoParameters) {
  Sample back;
  EXPECT_FALSE(sampleFromBuffer(*CMSampleBuffer::create(nullptr, nullptr, {}), back));
  EXPECT_FALSE(sampleFromBuffer(
      *CMSampleBuffer::create(std::make_shared<ForeignBlock>(), format_, {}), back));
  EXPECT_EQ(codecConfigOf(ForeignDescription()), nullptr);
  EXPECT_EQ(codecParametersOf(ForeignDescription()), nullptr);
}

}  // namespace
}  // namespace zaffo::media
