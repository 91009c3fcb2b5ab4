// SPDX-License-Identifier: Apache-2.0
#include "VideoFrame.h"

#include <gtest/gtest.h>

#include <QtCore/QLibraryInfo>
#include <QtCore/QVersionNumber>

#include <array>
#include <cstdint>
#include <memory>
#include <tuple>
#include <vector>

#include "QtTestSupport.h"

namespace zaffo::test {
namespace {

/// A picture of 8 by 6 with its aperture, each sample of which is another one's neighbour plus one.
OutputPicture pictureOf(CVPixelFormat format, int left, int top, int width, int height) {
  auto memory = std::make_shared<std::vector<uint8_t>>(3 * 256);
  for (std::size_t i = 0; i < memory->size(); ++i) (*memory)[i] = static_cast<uint8_t>(i % 251);
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->format = format;
  buffer->width = 8;
  buffer->height = 6;
  buffer->matrix = CVColorMatrix::BT601;
  for (std::size_t i = 0; i < 3; ++i) buffer->planes[i] = {memory->data() + 256 * i, 24};
  buffer->cropLeft = left;
  buffer->cropTop = top;
  buffer->cropWidth = width;
  buffer->cropHeight = height;
  buffer->owner = memory;
  return {buffer, 0, false};
}

/// Grey that grows to the right, and faster downwards.
CVPixelBufferPtr slope() {
  auto memory = std::make_shared<std::vector<uint8_t>>(2 * 256, uint8_t{128});
  for (std::size_t y = 0; y < 6; ++y)
    for (std::size_t x = 0; x < 8; ++x)
      (*memory)[24 * y + x] = static_cast<uint8_t>(40 + 24 * y + 7 * x);
  const OutputPicture noise = pictureOf(CVPixelFormat::NV12, 0, 0, 8, 6);
  auto buffer = std::make_shared<CVPixelBuffer>(*noise.buffer);
  for (std::size_t i = 0; i < 2; ++i) buffer->planes[i].data = memory->data() + 256 * i;
  buffer->owner = memory;
  return buffer;
}

class VideoFrameTest : public QtTest {};

TEST_F(VideoFrameTest, TheApertureOfEachPlaneIsCopied) {
  struct Case {
    CVPixelFormat format;
    QVideoFrameFormat::PixelFormat qt;
    int bytes, planes, chromaUnit;
  };
  for (const Case& c : {Case{CVPixelFormat::I420, QVideoFrameFormat::Format_YUV420P, 1, 3, 1},
                        Case{CVPixelFormat::NV12, QVideoFrameFormat::Format_NV12, 1, 2, 2},
                        Case{CVPixelFormat::P010, QVideoFrameFormat::Format_P010, 2, 2, 4}}) {
    const OutputPicture picture = pictureOf(c.format, 2, 2, 6, 4);
    QVideoFrame frame = qt::makeVideoFrame(picture);
    ASSERT_TRUE(frame.map(QVideoFrame::ReadOnly));
    EXPECT_EQ(frame.pixelFormat(), c.qt);
    EXPECT_EQ(frame.size(), QSize(6, 4));
    EXPECT_EQ(frame.planeCount(), c.planes);
    for (int plane = 0; plane < c.planes; ++plane) {
      const int rows = plane == 0 ? 4 : 2;
      const int bytes = plane == 0 ? 6 * c.bytes : 3 * c.chromaUnit;
      const int top = plane == 0 ? 2 : 1;
      const int left = plane == 0 ? 2 * c.bytes : c.chromaUnit;
      for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < bytes; ++x) {
          ASSERT_EQ(frame.bits(plane)[y * frame.bytesPerLine(plane) + x],
                    picture.buffer->planes[static_cast<std::size_t>(plane)]
                        .data[(top + y) * 24 + left + x])
              << "plane " << plane << " at " << x << ", " << y << " of format " << c.qt;
        }
      }
    }
    frame.unmap();
  }
}

TEST_F(VideoFrameTest, WhatQtDrawsWronglyIsConverted) {
  const bool isEarly = QLibraryInfo::version() < QVersionNumber(6, 5);
  auto buffer = std::make_shared<CVPixelBuffer>(*pictureOf(CVPixelFormat::I420, 0, 0, 8, 6).buffer);
  buffer->matrix = CVColorMatrix::BT709;
  EXPECT_EQ(qt::makeVideoFrame({buffer, 0, false}).pixelFormat(),
            isEarly ? QVideoFrameFormat::Format_BGRX8888 : QVideoFrameFormat::Format_YUV420P);
}

TEST_F(VideoFrameTest, WhatQtHasNoWordsForIsConverted) {
  const auto formatOf = [](const OutputPicture& picture) {
    return qt::makeVideoFrame(picture).pixelFormat();
  };
  EXPECT_EQ(formatOf(pictureOf(CVPixelFormat::I422, 0, 0, 8, 6)),
            QVideoFrameFormat::Format_BGRX8888);
  EXPECT_EQ(formatOf(pictureOf(CVPixelFormat::I420, 1, 0, 6, 6)),
            QVideoFrameFormat::Format_BGRX8888);
  EXPECT_EQ(formatOf(pictureOf(CVPixelFormat::I420, 0, 0, 8, 5)),
            QVideoFrameFormat::Format_BGRX8888);
  auto wide = pictureOf(CVPixelFormat::I420, 0, 0, 8, 6);
  auto buffer = std::make_shared<CVPixelBuffer>(*wide.buffer);
  buffer->pixelAspectRatio = 2;
  wide = {buffer, 1, false};
  EXPECT_EQ(qt::makeVideoFrame(wide).size(), QSize(6, 16)) << "upright, in square pixels";
  EXPECT_FALSE(qt::makeVideoFrame(pictureOf(CVPixelFormat::I420, 0, 0, 0, 6)).isValid());
}

TEST_F(VideoFrameTest, MirroringAndTurningComeOutAsTheyDoHere) {
  for (const int turns : {0, 1, 2, 3}) {
    for (const bool isMirrored : {false, true}) {
      const OutputPicture picture{slope(), turns, isMirrored};
      const QImage image = qt::makeVideoFrame(picture).toImage();
      QImage expected(turns % 2 != 0 ? QSize(6, 8) : QSize(8, 6), QImage::Format_RGB32);
      ASSERT_TRUE(picture.convertTo(expected.bits(), expected.width(), expected.height(),
                                    expected.bytesPerLine()));
      ASSERT_EQ(image.size(), expected.size());
      EXPECT_LT(meanDifference(image, expected), 2) << turns << " turns, mirrored " << isMirrored;
    }
  }
}

}  // namespace
}  // namespace zaffo::test
