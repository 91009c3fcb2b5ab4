// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/CGImage.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/foundation/MakeError.h"
#include "platform/foundation/NSError.h"

namespace zaffo {

namespace {

constexpr const char* kPOSIXErrorDomain = "NSPOSIXErrorDomain";

NSErrorPtr writeError(const std::string& path, int code, const std::string& reason) {
  return NSError::create(kPOSIXErrorDomain, code,
                         {{NSLocalizedDescriptionKey, "Cannot write " + path + ": " + reason}});
}

bool isOpaque(const CGImage& image) {
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* row = image.pixels() + static_cast<std::size_t>(y) * image.stride();
    for (int x = 0; x < image.width(); ++x) {
      if (row[4 * x + 3] != 255) return false;
    }
  }
  return true;
}

/// A colour before alpha is multiplied into it, as PNG stores it.
uint8_t unpremultiply(uint8_t color, uint8_t alpha) {
  if (alpha == 0) return 0;
  return static_cast<uint8_t>(std::min(255, (color * 255 + alpha / 2) / alpha));
}

/// Rows without gaps: B, G, R, A, or B, G, R for an opaque image.
std::vector<uint8_t> pixelsForPNG(const CGImage& image, bool opaque) {
  const std::size_t channels = opaque ? 3 : 4;
  const auto width = static_cast<std::size_t>(image.width());
  const auto height = static_cast<std::size_t>(image.height());
  std::vector<uint8_t> result(width * height * channels);
  uint8_t* to = result.data();
  for (std::size_t y = 0; y < height; ++y) {
    const uint8_t* from = image.pixels() + y * image.stride();
    for (std::size_t x = 0; x < width; ++x, from += 4, to += channels) {
      if (opaque) {
        std::copy(from, from + 3, to);
      } else {
        for (int c = 0; c < 3; ++c) to[c] = unpremultiply(from[c], from[3]);
        to[3] = from[3];
      }
    }
  }
  return result;
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

CGImage::CGImage(int width, int height, std::size_t stride, std::vector<uint8_t> pixels)
    : width_(width), height_(height), stride_(stride), pixels_(std::move(pixels)) {
  const bool hasPixels = width > 0 && height > 0 && stride / 4 >= static_cast<std::size_t>(width) &&
                         pixels_.size() / stride >= static_cast<std::size_t>(height);
  if (hasPixels) return;
  width_ = height_ = 0;
  stride_ = 0;
  pixels_.clear();
}

NSErrorPtr CGImage::writePNG(const std::string& path) const {
  if (width_ == 0) return writeError(path, EINVAL, "the image is empty");
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    const int code = errno;
    return writeError(path, code, std::strerror(code));
  }
  const bool opaque = isOpaque(*this);
  const std::vector<uint8_t> pixels = pixelsForPNG(*this, opaque);
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width_);
  image.height = static_cast<png_uint_32>(height_);
  image.format = opaque ? PNG_FORMAT_BGR : PNG_FORMAT_BGRA;
  errno = 0;
  const bool written =
      png_image_write_to_stdio(&image, file.get(), 0, pixels.data(), 0, nullptr) != 0;
  if (written && std::fclose(file.release()) == 0) return nullptr;
  const int code = errno != 0 ? errno : EIO;
  const std::string reason = written ? std::strerror(code) : image.message;
  file.reset();
  std::remove(path.c_str());
  return writeError(path, code, reason);
}

}  // namespace zaffo
