// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/PixelBuffers.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <optional>

namespace zaffo::media {
namespace {

struct KnownFormat {
  CVPixelFormat format;
  int planes;
};

std::optional<KnownFormat> knownFormat(int format) {
  switch (format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P:
      return KnownFormat{CVPixelFormat::I420, 3};
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P:
      return KnownFormat{CVPixelFormat::I422, 3};
    case AV_PIX_FMT_YUV444P:
    case AV_PIX_FMT_YUVJ444P:
      return KnownFormat{CVPixelFormat::I444, 3};
    case AV_PIX_FMT_YUV420P10LE:
      return KnownFormat{CVPixelFormat::I420P10, 3};
    case AV_PIX_FMT_YUV422P10LE:
      return KnownFormat{CVPixelFormat::I422P10, 3};
    case AV_PIX_FMT_YUV444P10LE:
      return KnownFormat{CVPixelFormat::I444P10, 3};
    case AV_PIX_FMT_NV12:
      return KnownFormat{CVPixelFormat::NV12, 2};
    case AV_PIX_FMT_P010LE:
      return KnownFormat{CVPixelFormat::P010, 2};
    case AV_PIX_FMT_GRAY8:
      return KnownFormat{CVPixelFormat::Gray8, 1};
    case AV_PIX_FMT_BGRA:
      return KnownFormat{CVPixelFormat::BGRA, 1};
    default:
      return std::nullopt;
  }
}

bool isFullRangeFormat(int format) {
  return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P ||
         format == AV_PIX_FMT_YUVJ444P;
}

// The format, of those known, that keeps the most of what `format` holds.
AVPixelFormat nearestKnownFormat(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  if (!d) return AV_PIX_FMT_NONE;
  if (d->flags & AV_PIX_FMT_FLAG_ALPHA) return AV_PIX_FMT_BGRA;
  const bool deep = d->comp[0].depth > 8;
  const bool halfWidth = d->nb_components >= 3 && d->log2_chroma_w > 0;
  const bool halfHeight = d->nb_components >= 3 && d->log2_chroma_h > 0;
  if (d->nb_components < 3) return deep ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_GRAY8;
  if (halfHeight) return deep ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_YUV420P;
  if (halfWidth) return deep ? AV_PIX_FMT_YUV422P10LE : AV_PIX_FMT_YUV422P;
  return deep ? AV_PIX_FMT_YUV444P10LE : AV_PIX_FMT_YUV444P;
}

// Where neither the picture nor the file says, the size tells: the larger ones are HD.
CVColorMatrix colorMatrix(AVColorSpace space, int width, int height) {
  switch (space) {
    case AVCOL_SPC_BT709:
      return CVColorMatrix::BT709;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return CVColorMatrix::BT2020;
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
      return CVColorMatrix::BT601;
    default:
      break;
  }
  return width >= 1280 || height >= 720 ? CVColorMatrix::BT709 : CVColorMatrix::BT601;
}

void setChromaSites(CVPixelBuffer& buffer, AVChromaLocation location) {
  using enum CVChromaSite;
  buffer.chromaSiteX = location == AVCHROMA_LOC_CENTER || location == AVCHROMA_LOC_TOP ||
                               location == AVCHROMA_LOC_BOTTOM
                           ? Middle
                           : First;
  const bool top = location == AVCHROMA_LOC_TOPLEFT || location == AVCHROMA_LOC_TOP;
  const bool bottom = location == AVCHROMA_LOC_BOTTOMLEFT || location == AVCHROMA_LOC_BOTTOM;
  buffer.chromaSiteY = top ? First : bottom ? Second : Middle;
}

}  // namespace

PixelBuffers::PixelBuffers(const AVCodecParameters& parameters)
    : colorSpace_(parameters.color_space),
      colorRange_(parameters.color_range),
      chromaLocation_(parameters.chroma_location),
      pixelAspect_(parameters.sample_aspect_ratio),
      converted_(FramePool::create()) {}

PixelBuffers::~PixelBuffers() {
  converted_->close();
}

CVPixelBufferPtr PixelBuffers::wrap(FramePtr frame) {
  if (!knownFormat(frame->format)) frame = convert(*frame);
  const std::optional<KnownFormat> known = frame ? knownFormat(frame->format) : std::nullopt;
  if (!known) return nullptr;
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->format = known->format;
  buffer->width = buffer->cropWidth = frame->width;
  buffer->height = buffer->cropHeight = frame->height;
  for (int i = 0; i < known->planes; ++i) {
    buffer->planes[static_cast<std::size_t>(i)] = {frame->data[i], frame->linesize[i]};
  }
  const AVColorSpace space =
      frame->colorspace != AVCOL_SPC_UNSPECIFIED ? frame->colorspace : colorSpace_;
  buffer->matrix = colorMatrix(space, frame->width, frame->height);
  const AVColorRange range =
      frame->color_range != AVCOL_RANGE_UNSPECIFIED ? frame->color_range : colorRange_;
  const bool full = range == AVCOL_RANGE_JPEG || isFullRangeFormat(frame->format);
  buffer->range = full ? CVColorRange::Full : CVColorRange::Limited;
  const bool tells = frame->chroma_location != AVCHROMA_LOC_UNSPECIFIED;
  setChromaSites(*buffer, tells ? frame->chroma_location : chromaLocation_);
  const AVRational aspect = pixelAspect_.num > 0 ? pixelAspect_ : frame->sample_aspect_ratio;
  if (aspect.num > 0 && aspect.den > 0) buffer->pixelAspectRatio = av_q2d(aspect);
  buffer->owner = std::shared_ptr<const void>(
      frame.release(), [](void* memory) { FrameDeleter{}(static_cast<AVFrame*>(memory)); });
  return buffer;
}

FramePtr PixelBuffers::convert(const AVFrame& frame) {
  const auto from = static_cast<AVPixelFormat>(frame.format);
  const AVPixelFormat to = nearestKnownFormat(from);
  if (to == AV_PIX_FMT_NONE) return nullptr;
  FramePtr converted(av_frame_alloc());
  if (!converted || av_frame_copy_props(converted.get(), &frame) < 0) return nullptr;
  converted->format = to;
  converted->width = frame.width;
  converted->height = frame.height;
  if (converted_->allocate(*converted) < 0) return nullptr;
  scaler_.reset(sws_getCachedContext(scaler_.release(), frame.width, frame.height, from,
                                     frame.width, frame.height, to, SWS_POINT, nullptr, nullptr,
                                     nullptr));
  if (!scaler_) return nullptr;
  if (frame.colorspace == AVCOL_SPC_RGB) converted->colorspace = AVCOL_SPC_SMPTE170M;
  if (frame.colorspace == AVCOL_SPC_RGB) converted->color_range = AVCOL_RANGE_MPEG;
  const int rows = sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height,
                             converted->data, converted->linesize);
  return rows > 0 ? std::move(converted) : nullptr;
}

}  // namespace zaffo::media
