// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/coremedia/PictureScaler.h"
#include "platform/window/DisplayList.h"
#include "platform/window/SDLCommon.h"

namespace zaffo::window {

/// A texture that holds a picture of a display list.
struct PictureTexture {
  SDL_Texture* texture = nullptr;  ///< null when the renderer could not make one
  SDL_YUV_CONVERSION_MODE yuvMode = SDL_YUV_CONVERSION_AUTOMATIC;  ///< AUTOMATIC: it is BGRA
};

/// The textures of the pictures on screen. Each picture is uploaded once, however often and however
/// long it is drawn; a texture whose picture is gone waits, with one other at most, for the next
/// picture of its kind. Thread: render thread.
class TextureCache {
 public:
  explicit TextureCache(SDL_Renderer* renderer);

  /// The texture of a picture; valid until endList(). `drawnWidth` and `drawnHeight` are what the
  /// picture is drawn at, before it is turned. One too large for a texture is scaled to that, and
  /// so is a moving picture that the graphics processor cannot convert, if that is less than its
  /// own size.
  [[nodiscard]] PictureTexture texture(const CVPixelBufferPtr& picture, int drawnWidth,
                                       int drawnHeight);
  [[nodiscard]] PictureTexture texture(const CGImagePtr& image, int drawnWidth, int drawnHeight);

  /// Lets go of pictures that were not asked for since the last call.
  void endList();

  [[nodiscard]] uint64_t uploads() const { return uploads_; }

 private:
  struct Shape {
    uint32_t format = 0;
    int width = 0, height = 0;
    SDL_YUV_CONVERSION_MODE yuvMode = SDL_YUV_CONVERSION_AUTOMATIC;
    bool operator==(const Shape&) const = default;
  };
  struct Entry {
    std::shared_ptr<const void> picture;  // null: a spare
    Shape shape;
    SDLTexturePtr texture;
    bool inUse = false;
  };

  template <class Picture, class Upload>
  PictureTexture find(const std::shared_ptr<const Picture>& picture, const Shape& shape,
                      const Upload& upload);
  [[nodiscard]] Entry makeEntry(const Shape& shape);
  [[nodiscard]] bool uploadPlanes(const CVPixelBuffer& picture, SDL_Texture* texture);
  [[nodiscard]] Shape packedShape(int width, int height, int drawnWidth, int drawnHeight) const;

  SDL_Renderer* renderer_;
  int largestWidth_ = 0, largestHeight_ = 0;
  std::vector<Entry> entries_;
  PictureScaler scaler_;
  std::array<std::vector<uint8_t>, 2> chroma_;  // moved to where the processor takes it to lie
  uint64_t uploads_ = 0;
};

}  // namespace zaffo::window
