// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/PixelBuffers.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

namespace zaffo::media {
namespace {

FramePtr makeFrame(AVPixelFormat format, int width = 64, int height = 48) {
  FramePtr frame(av_frame_alloc());
  frame->format = format;
  frame->width = width;
  frame->height = height;
  EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
  for (int plane = 0; plane < 4 && frame->buf[plane]; ++plane) {
    std::fill_n(frame->buf[plane]->data, frame->buf[plane]->size, uint8_t{100});
  }
  return frame;
}

class PixelBuffersTest : public testing::Test {
 protected:
  CVPixelBufferPtr wrap(FramePtr frame) {
    return PixelBuffers(*parameters_).wrap(std::move(frame));
  }
  CVPixelBufferPtr wrapChanged(const std::function<void(AVFrame&)>& change) {
    FramePtr frame = makeFrame(AV_PIX_FMT_YUV420P);
    change(*frame);
    return wrap(std::move(frame));
  }

  const CodecParametersPtr parameters_{avcodec_parameters_alloc()};
};

TEST_F(PixelBuffersTest, AKnownFormatIsHandedOnByReference) {
  FramePtr frame = makeFrame(AV_PIX_FMT_YUV420P);
  const uint8_t* const luma = frame->data[0];
  const uint8_t* const chroma = frame->data[2];
  const int stride = frame->linesize[1];
  const CVPixelBufferPtr buffer = wrap(std::move(frame));
  ASSERT_TRUE(buffer);
  EXPECT_EQ(buffer->format, CVPixelFormat::I420);
  EXPECT_EQ(buffer->width, 64);
  EXPECT_EQ(buffer->cropHeight, 48);
  EXPECT_EQ(buffer->planes[0].data, luma);
  EXPECT_EQ(buffer->planes[1].stride, stride);
  EXPECT_EQ(buffer->planes[2].data, chroma);
}

TEST_F(PixelBuffersTest, ChromaLiesWhereTheFrameSaysOrElseTheFileOrElseOnTheLeft) {
  using enum CVChromaSite;
  const auto sitesOf = [&](AVChromaLocation location) {
    const auto buffer = wrapChanged([&](AVFrame& frame) { frame.chroma_location = location; });
    return std::pair{buffer->chromaSiteX, buffer->chromaSiteY};
  };
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_UNSPECIFIED), std::pair(First, Middle));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_LEFT), std::pair(First, Middle));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_CENTER), std::pair(Middle, Middle));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_TOPLEFT), std::pair(First, First));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_TOP), std::pair(Middle, First));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_BOTTOMLEFT), std::pair(First, Second));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_BOTTOM), std::pair(Middle, Second));
  parameters_->chroma_location = AVCHROMA_LOC_CENTER;
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_UNSPECIFIED), std::pair(Middle, Middle));
  EXPECT_EQ(sitesOf(AVCHROMA_LOC_TOPLEFT), std::pair(First, First));
}

TEST_F(PixelBuffersTest, TheFrameLivesAsLongAsTheBuffer) {
  FramePtr frame = makeFrame(AV_PIX_FMT_YUV420P);
  AVBufferRef* const watch = av_buffer_ref(frame->buf[0]);
  CVPixelBufferPtr buffer = wrap(std::move(frame));
  EXPECT_EQ(av_buffer_get_ref_count(watch), 2);
  buffer.reset();
  EXPECT_EQ(av_buffer_get_ref_count(watch), 1);
  AVBufferRef* last = watch;
  av_buffer_unref(&last);
}

TEST_F(PixelBuffersTest, EveryFormatThatTheRenderersKnowStaysWhatItIs) {
  const struct {
    AVPixelFormat decoded;
    CVPixelFormat format;
  } known[] = {{AV_PIX_FMT_YUV422P, CVPixelFormat::I422},
               {AV_PIX_FMT_YUV444P, CVPixelFormat::I444},
               {AV_PIX_FMT_YUV420P10LE, CVPixelFormat::I420P10},
               {AV_PIX_FMT_YUV422P10LE, CVPixelFormat::I422P10},
               {AV_PIX_FMT_YUV444P10LE, CVPixelFormat::I444P10},
               {AV_PIX_FMT_NV12, CVPixelFormat::NV12},
               {AV_PIX_FMT_P010LE, CVPixelFormat::P010},
               {AV_PIX_FMT_GRAY8, CVPixelFormat::Gray8},
               {AV_PIX_FMT_BGRA, CVPixelFormat::BGRA}};
  for (const auto& one : known) {
    FramePtr frame = makeFrame(one.decoded);
    const uint8_t* const data = frame->data[0];
    const CVPixelBufferPtr buffer = wrap(std::move(frame));
    ASSERT_TRUE(buffer) << one.decoded;
    EXPECT_EQ(buffer->format, one.format) << one.decoded;
    EXPECT_EQ(buffer->planes[0].data, data) << one.decoded;
  }
}

TEST_F(PixelBuffersTest, AnotherFormatBecomesTheNearestOneThatIsKnown) {
  const struct {
    AVPixelFormat decoded;
    CVPixelFormat format;
  } foreign[] = {{AV_PIX_FMT_YUV410P, CVPixelFormat::I420},
                 {AV_PIX_FMT_YUV411P, CVPixelFormat::I422},
                 {AV_PIX_FMT_YUV440P, CVPixelFormat::I420},
                 {AV_PIX_FMT_YUV420P12LE, CVPixelFormat::I420P10},
                 {AV_PIX_FMT_YUV422P12LE, CVPixelFormat::I422P10},
                 {AV_PIX_FMT_YUV444P12LE, CVPixelFormat::I444P10},
                 {AV_PIX_FMT_GBRP, CVPixelFormat::I444},
                 {AV_PIX_FMT_GRAY10LE, CVPixelFormat::I420P10},
                 {AV_PIX_FMT_YUVA420P, CVPixelFormat::BGRA}};
  for (const auto& one : foreign) {
    const CVPixelBufferPtr buffer = wrap(makeFrame(one.decoded));
    ASSERT_TRUE(buffer) << one.decoded;
    EXPECT_EQ(buffer->format, one.format) << one.decoded;
    EXPECT_EQ(buffer->width, 64);
  }
}

TEST_F(PixelBuffersTest, TheFrameTellsTheMatrixTheFileWhereItDoesNotAndTheSizeWhereNeitherDoes) {
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P))->matrix, CVColorMatrix::BT601);
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P, 1280, 16))->matrix, CVColorMatrix::BT709);
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P, 16, 720))->matrix, CVColorMatrix::BT709);
  parameters_->color_space = AVCOL_SPC_BT2020_NCL;
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P))->matrix, CVColorMatrix::BT2020);
  const auto told = [](AVFrame& frame) { frame.colorspace = AVCOL_SPC_BT709; };
  EXPECT_EQ(wrapChanged(told)->matrix, CVColorMatrix::BT709);
}

TEST_F(PixelBuffersTest, TheFrameTellsTheRangeTheFileWhereItDoesNotAndElseItIsLimited) {
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P))->range, CVColorRange::Limited);
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUVJ420P))->range, CVColorRange::Full);
  parameters_->color_range = AVCOL_RANGE_JPEG;
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P))->range, CVColorRange::Full);
  const auto told = [](AVFrame& frame) { frame.color_range = AVCOL_RANGE_MPEG; };
  EXPECT_EQ(wrapChanged(told)->range, CVColorRange::Limited);
}

TEST_F(PixelBuffersTest, TheFileTellsTheShapeOfAPixelAndTheFrameWhereItDoesNot) {
  EXPECT_EQ(wrap(makeFrame(AV_PIX_FMT_YUV420P))->pixelAspectRatio, 1.0);
  const auto told = [](AVFrame& frame) { frame.sample_aspect_ratio = {4, 3}; };
  EXPECT_DOUBLE_EQ(wrapChanged(told)->pixelAspectRatio, 4.0 / 3);
  parameters_->sample_aspect_ratio = {2, 1};
  EXPECT_DOUBLE_EQ(wrapChanged(told)->pixelAspectRatio, 2.0);
}

}  // namespace
}  // namespace zaffo::media
