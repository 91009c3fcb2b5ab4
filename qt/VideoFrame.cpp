// SPDX-License-Identifier: Apache-2.0
#include "VideoFrame.h"

#include <QtCore/QLibraryInfo>
#include <QtCore/QVersionNumber>

#include <cmath>
#include <cstring>

namespace zaffo::qt {

namespace {

using PixelFormat = QVideoFrameFormat::PixelFormat;

/// How Qt lays out a format: planes, bytes to a sample of the first, and whether the second
/// interleaves chroma.
struct Planar {
  PixelFormat format = QVideoFrameFormat::Format_Invalid;
  int bytes = 1;
  bool isInterleaved = false;
};

Planar planarOf(CVPixelFormat format) {
  switch (format) {
    case CVPixelFormat::I420:
      return {QVideoFrameFormat::Format_YUV420P, 1, false};
    case CVPixelFormat::NV12:
      return {QVideoFrameFormat::Format_NV12, 1, true};
    case CVPixelFormat::I420P10:
      return {QVideoFrameFormat::Format_YUV420P10, 2, false};
    case CVPixelFormat::P010:
      return {QVideoFrameFormat::Format_P010, 2, true};
    default:  // Qt 6.4 gives 4:2:2 too little memory, and has no other.
      return {};
  }
}

/// Whether Qt draws the planes of such a picture as they are meant. Before 6.5 its matrix for
/// BT.709 takes blue for red in green, that for BT.2020 and the full ranges are off as well, and a
/// window keeps the first matrix that it was told.
bool isDrawnRightly(const CVPixelBuffer& buffer) {
  static const bool isEarly = QLibraryInfo::version() < QVersionNumber(6, 5);
  return !isEarly ||
         (buffer.matrix == CVColorMatrix::BT601 && buffer.range == CVColorRange::Limited);
}

/// Chroma is halved: an aperture that begins or ends within one of its samples is not a picture of
/// Qt's, whose sizes are halved downwards.
bool isEven(const CVPixelBuffer& buffer) {
  return ((buffer.cropLeft | buffer.cropTop | buffer.cropWidth | buffer.cropHeight) & 1) == 0;
}

QVideoFrameFormat::ColorSpace colorSpaceOf(const CVPixelBuffer& buffer) {
  switch (buffer.matrix) {
    case CVColorMatrix::BT601:
      // By this name Qt has JPEG's matrix, in every version.
      return buffer.range == CVColorRange::Full ? QVideoFrameFormat::ColorSpace_AdobeRgb
                                                : QVideoFrameFormat::ColorSpace_BT601;
    case CVColorMatrix::BT2020:
      return QVideoFrameFormat::ColorSpace_BT2020;
    case CVColorMatrix::BT709:
      break;
  }
  return QVideoFrameFormat::ColorSpace_BT709;
}

/// The part of a picture's plane that is shown: its rows, in bytes of memory.
struct Rows {
  const uint8_t* first = nullptr;
  std::ptrdiff_t stride = 0;
  int bytes = 0, count = 0;
};

Rows shownRows(const CVPixelBuffer& buffer, const Planar& planar, std::size_t index) {
  const auto& plane = buffer.planes[index];
  const int halves = index == 0 ? 1 : 2;
  // Of interleaved chroma a pair is as wide as the two pixels that share it.
  const int unit = planar.bytes * (index > 0 && planar.isInterleaved ? 2 : 1);
  return {plane.data + buffer.cropTop / halves * plane.stride +
              static_cast<std::ptrdiff_t>(buffer.cropLeft / halves) * unit,
          plane.stride, buffer.cropWidth / halves * unit, buffer.cropHeight / halves};
}

/// False when Qt has laid the frame out with too little room, as 6.4 does for planes of 10 bits.
bool copyPlanes(QVideoFrame& frame, const CVPixelBuffer& buffer, const Planar& planar) {
  for (int index = 0; index < (planar.isInterleaved ? 2 : 3); ++index) {
    const Rows rows = shownRows(buffer, planar, static_cast<std::size_t>(index));
    const std::ptrdiff_t stride = frame.bytesPerLine(index);
    if (stride < rows.bytes || frame.mappedBytes(index) < stride * rows.count) return false;
    for (int row = 0; row < rows.count; ++row)
      std::memcpy(frame.bits(index) + row * stride, rows.first + row * rows.stride,
                  static_cast<std::size_t>(rows.bytes));
  }
  return true;
}

void setTurn(QVideoFrame& frame, const OutputPicture& picture) {
  // Qt mirrors what it has turned; ours is mirrored first, which turns it the other way round.
  const int turns = picture.mirrored ? (4 - picture.quarterTurns) & 3 : picture.quarterTurns;
  frame.setMirrored(picture.mirrored);
#if QT_VERSION >= QT_VERSION_CHECK(6, 7, 0)
  frame.setRotation(static_cast<QtVideo::Rotation>(turns * 90));
#else
  frame.setRotationAngle(static_cast<QVideoFrame::RotationAngle>(turns * 90));
#endif
}

QVideoFrame makeConverted(const OutputPicture& picture) {
  const CGSize size = picture.naturalSize();
  const int width = static_cast<int>(std::lround(size.width));
  const int height = static_cast<int>(std::lround(size.height));
  QVideoFrame frame(QVideoFrameFormat(QSize(width, height), QVideoFrameFormat::Format_BGRX8888));
  if (width <= 0 || height <= 0 || !frame.map(QVideoFrame::WriteOnly)) return {};
  const bool isConverted = picture.convertTo(frame.bits(0), width, height, frame.bytesPerLine(0));
  frame.unmap();
  return isConverted ? frame : QVideoFrame();
}

}  // namespace

QVideoFrame makeVideoFrame(const OutputPicture& picture) {
  const CVPixelBuffer& buffer = *picture.buffer;
  const Planar planar = planarOf(buffer.format);
  if (planar.format == QVideoFrameFormat::Format_Invalid || !isEven(buffer) ||
      buffer.pixelAspectRatio != 1 || !isDrawnRightly(buffer))
    return makeConverted(picture);
  QVideoFrameFormat format(QSize(buffer.cropWidth, buffer.cropHeight), planar.format);
  format.setColorSpace(colorSpaceOf(buffer));
  format.setColorRange(buffer.range == CVColorRange::Full ? QVideoFrameFormat::ColorRange_Full
                                                          : QVideoFrameFormat::ColorRange_Video);
  QVideoFrame frame(format);
  if (!frame.map(QVideoFrame::WriteOnly)) return makeConverted(picture);
  const bool isCopied = copyPlanes(frame, buffer, planar);
  frame.unmap();
  if (!isCopied) return makeConverted(picture);
  setTurn(frame, picture);
  return frame;
}

}  // namespace zaffo::qt
