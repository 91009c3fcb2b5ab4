// SPDX-License-Identifier: Apache-2.0
#include "platform/window/TextureCache.h"

#include <algorithm>
#include <utility>

#include "platform/window/ImagePixels.h"

namespace zaffo::window {

namespace {

constexpr std::ptrdiff_t sparesKept = 2;

/// The mode in which the graphics processor itself converts the picture; AUTOMATIC when it cannot.
SDL_YUV_CONVERSION_MODE nativeMode(const CVPixelBuffer& p) {
  if (p.format != CVPixelFormat::I420 && p.format != CVPixelFormat::NV12) {
    return SDL_YUV_CONVERSION_AUTOMATIC;
  }
  // An odd edge falls into the middle of a chroma sample, and half a sample's chroma would be
  // stretched over a whole one's place.
  const bool evenX = p.cropLeft % 2 == 0 && p.cropWidth % 2 == 0;
  const bool evenY = p.cropTop % 2 == 0 && p.cropHeight % 2 == 0;
  if (!evenX || !evenY) return SDL_YUV_CONVERSION_AUTOMATIC;
  // The graphics processor takes chroma to lie amid its pixels. What lies on the left one is moved
  // as it is uploaded.
  if (p.chromaSiteX == CVChromaSite::Second || p.chromaSiteY != CVChromaSite::Middle) {
    return SDL_YUV_CONVERSION_AUTOMATIC;
  }
  const bool full = p.range == CVColorRange::Full;
  if (p.matrix == CVColorMatrix::BT601) {
    return full ? SDL_YUV_CONVERSION_JPEG : SDL_YUV_CONVERSION_BT601;
  }
  if (p.matrix == CVColorMatrix::BT709 && !full) return SDL_YUV_CONVERSION_BT709;
  return SDL_YUV_CONVERSION_AUTOMATIC;
}

/// Where the clean aperture begins in a plane. It alone is uploaded: what surrounds it must not
/// bleed in at the edges.
CVPixelBuffer::Plane cropped(const CVPixelBuffer& p, std::size_t plane, int bytesAcross,
                             int subsampling) {
  const auto& [data, stride] = p.planes[plane];
  return {data + stride * (p.cropTop / subsampling) +
              std::ptrdiff_t{p.cropLeft / subsampling} * bytesAcross,
          stride};
}

/// Moves samples that lie on the left one of their two pixels into the middle: a quarter of the way
/// to the next sample. `values` numbers make a sample; the last one of a row stays.
void centreRow(const uint8_t* row, int samples, int values, uint8_t* centred) {
  const int moved = (samples - 1) * values;
  for (int i = 0; i < moved; ++i) {
    centred[i] = static_cast<uint8_t>((3 * row[i] + row[i + values] + 2) >> 2);
  }
  std::copy_n(row + moved, values, centred + moved);
}

CVPixelBuffer::Plane centred(const CVPixelBuffer& p, std::size_t plane, int values,
                             std::vector<uint8_t>& memory) {
  const CVPixelBuffer::Plane from = cropped(p, plane, values, 2);
  if (p.chromaSiteX == CVChromaSite::Middle) return from;
  const int samples = p.cropWidth / 2, rows = p.cropHeight / 2;
  const std::ptrdiff_t stride = std::ptrdiff_t{samples} * values;
  memory.resize(static_cast<std::size_t>(stride * rows));
  for (int y = 0; y < rows; ++y) {
    centreRow(from.data + from.stride * y, samples, values, memory.data() + stride * y);
  }
  return {memory.data(), stride};
}

bool uploadPacked(PictureScaler& scaler, const CVPixelBuffer& picture, SDL_Texture* texture,
                  int width, int height) {
  void* pixels = nullptr;
  int stride = 0;
  if (SDL_LockTexture(texture, nullptr, &pixels, &stride) != 0) return false;
  scaler.scale(picture, PictureLayout{width, height, 0, false, {0, 0, width, height}},
               {static_cast<uint8_t*>(pixels), stride, width, height});
  SDL_UnlockTexture(texture);
  return true;
}

}  // namespace

TextureCache::TextureCache(SDL_Renderer* renderer) : renderer_(renderer) {
  SDL_RendererInfo info{};
  SDL_GetRendererInfo(renderer, &info);
  // Zero means that any size will do.
  largestWidth_ = info.max_texture_width > 0 ? info.max_texture_width : 16384;
  largestHeight_ = info.max_texture_height > 0 ? info.max_texture_height : 16384;
}

bool TextureCache::uploadPlanes(const CVPixelBuffer& p, SDL_Texture* texture) {
  const CVPixelBuffer::Plane luma = cropped(p, 0, 1, 1);
  const auto stride = [](const CVPixelBuffer::Plane& plane) {
    return static_cast<int>(plane.stride);
  };
  if (p.format == CVPixelFormat::NV12) {
    const CVPixelBuffer::Plane pairs = centred(p, 1, 2, chroma_[0]);
    return SDL_UpdateNVTexture(texture, nullptr, luma.data, stride(luma), pairs.data,
                               stride(pairs)) == 0;
  }
  const CVPixelBuffer::Plane u = centred(p, 1, 1, chroma_[0]), v = centred(p, 2, 1, chroma_[1]);
  return SDL_UpdateYUVTexture(texture, nullptr, luma.data, stride(luma), u.data, stride(u), v.data,
                              stride(v)) == 0;
}

TextureCache::Shape TextureCache::packedShape(int width, int height, int drawnWidth,
                                              int drawnHeight) const {
  Shape shape{SDL_PIXELFORMAT_ARGB8888, std::max(width, 1), std::max(height, 1),
              SDL_YUV_CONVERSION_AUTOMATIC};
  if (width > largestWidth_ || height > largestHeight_) {
    shape.width = std::clamp(drawnWidth, 1, largestWidth_);
    shape.height = std::clamp(drawnHeight, 1, largestHeight_);
  }
  return shape;
}

PictureTexture TextureCache::texture(const CVPixelBufferPtr& picture, int drawnWidth,
                                     int drawnHeight) {
  const CVPixelBuffer& p = *picture;
  const SDL_YUV_CONVERSION_MODE mode = nativeMode(p);
  const bool fits = p.cropWidth <= largestWidth_ && p.cropHeight <= largestHeight_;
  if (mode != SDL_YUV_CONVERSION_AUTOMATIC && fits) {
    const uint32_t format =
        p.format == CVPixelFormat::NV12 ? SDL_PIXELFORMAT_NV12 : SDL_PIXELFORMAT_IYUV;
    SDL_SetYUVConversionMode(mode);  // read when a texture is made, or drawn
    return find(picture, {format, p.cropWidth, p.cropHeight, mode},
                [&](SDL_Texture* texture) { return uploadPlanes(p, texture); });
  }
  // No more pixels are converted than are drawn.
  const Shape shape = packedShape(std::min(p.cropWidth, drawnWidth),
                                  std::min(p.cropHeight, drawnHeight), drawnWidth, drawnHeight);
  return find(picture, shape, [&](SDL_Texture* texture) {
    return uploadPacked(scaler_, p, texture, shape.width, shape.height);
  });
}

PictureTexture TextureCache::texture(const CGImagePtr& image, int drawnWidth, int drawnHeight) {
  const Shape shape = packedShape(image->width(), image->height(), drawnWidth, drawnHeight);
  return find(image, shape, [&](SDL_Texture* texture) {
    return uploadPacked(scaler_, pixelBufferOf(*image), texture, shape.width, shape.height);
  });
}

template <class Picture, class Upload>
PictureTexture TextureCache::find(const std::shared_ptr<const Picture>& picture, const Shape& shape,
                                  const Upload& upload) {
  const auto holds = [&](const auto& wanted) {
    return [&](const Entry& entry) { return entry.picture == wanted && entry.shape == shape; };
  };
  const std::shared_ptr<const void> wanted = picture;
  auto entry = std::find_if(entries_.begin(), entries_.end(), holds(wanted));
  if (entry == entries_.end()) {
    entry = std::find_if(entries_.begin(), entries_.end(), holds(std::shared_ptr<const void>()));
    if (entry == entries_.end()) {
      entries_.push_back(makeEntry(shape));
      entry = entries_.end() - 1;
    }
    if (!entry->texture || !upload(entry->texture.get())) {
      entries_.erase(entry);
      return {};
    }
    entry->picture = wanted;
    ++uploads_;
  }
  entry->inUse = true;
  return {entry->texture.get(), shape.yuvMode};
}

TextureCache::Entry TextureCache::makeEntry(const Shape& shape) {
  Entry entry;
  entry.shape = shape;
  entry.texture.reset(SDL_CreateTexture(renderer_, shape.format, SDL_TEXTUREACCESS_STREAMING,
                                        shape.width, shape.height));
  if (entry.texture) SDL_SetTextureScaleMode(entry.texture.get(), SDL_ScaleModeLinear);
  return entry;
}

void TextureCache::endList() {
  for (Entry& entry : entries_) {
    if (!std::exchange(entry.inUse, false)) entry.picture.reset();
  }
  const auto isSpare = [](const Entry& entry) { return !entry.picture; };
  auto spares = std::count_if(entries_.begin(), entries_.end(), isSpare);
  while (spares-- > sparesKept) {
    entries_.erase(std::find_if(entries_.begin(), entries_.end(), isSpare));  // the oldest
  }
}

}  // namespace zaffo::window
