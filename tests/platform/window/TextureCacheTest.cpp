// SPDX-License-Identifier: Apache-2.0
#include "platform/window/TextureCache.h"

#include "PixelBuffers.h"
#include "WindowTestSupport.h"

namespace zaffo::window {
namespace {

struct Size {
  int width = 0, height = 0;
  bool operator==(const Size&) const = default;
};

class TextureCacheTest : public testing::Test {
 protected:
  ~TextureCacheTest() override { SDL_FreeSurface(surface_); }

  [[nodiscard]] CVPixelBufferPtr pictureOf(BufferKind kind) {
    return makeBuffer(kind, 64, 48, [](int, int) { return kGreen; });
  }
  /// The size of the texture of a picture that is drawn at so many pixels.
  [[nodiscard]] Size textureSize(const CVPixelBufferPtr& picture, int width, int height) {
    Size size;
    SDL_Texture* texture = cache_.texture(picture, width, height).texture;
    EXPECT_EQ(SDL_QueryTexture(texture, nullptr, nullptr, &size.width, &size.height), 0);
    return size;
  }

  SDL_Surface* surface_ = SDL_CreateRGBSurfaceWithFormat(0, 200, 200, 32, SDL_PIXELFORMAT_ARGB8888);
  SDLRendererPtr renderer_{SDL_CreateSoftwareRenderer(surface_)};
  TextureCache cache_{renderer_.get()};
};

TEST_F(TextureCacheTest, WhatIsConvertedHereHasNoMorePixelsThanAreDrawn) {
  using enum CVPixelFormat;
  const BufferKind kinds[] = {{I420P10},
                              {I422},
                              {I444},
                              {P010},
                              {Gray8},
                              {I420, CVColorMatrix::BT2020},
                              {I420, CVColorMatrix::BT709, CVColorRange::Full}};
  for (const BufferKind& kind : kinds) {
    const CVPixelBufferPtr picture = pictureOf(kind);
    EXPECT_EQ(textureSize(picture, 40, 30), (Size{40, 30}));
    EXPECT_EQ(textureSize(picture, 80, 60), (Size{64, 48}));
    EXPECT_EQ(textureSize(picture, 80, 30), (Size{64, 30}));
    EXPECT_EQ(textureSize(picture, 64, 48), (Size{64, 48}));
  }
}

TEST_F(TextureCacheTest, PlanesThatTheRendererConvertsAreUploadedWhole) {
  const CVPixelBufferPtr picture = pictureOf({CVPixelFormat::I420});
  EXPECT_EQ(textureSize(picture, 40, 30), (Size{64, 48}));
}

TEST_F(TextureCacheTest, IsUploadedOnceForEachPictureAndSize) {
  const CVPixelBufferPtr picture = pictureOf({CVPixelFormat::I420P10});
  for (int list = 0; list < 3; ++list) {
    static_cast<void>(textureSize(picture, 40, 30));
    static_cast<void>(textureSize(picture, 20, 15));
    cache_.endList();
  }
  EXPECT_EQ(cache_.uploads(), 2U);
}

}  // namespace
}  // namespace zaffo::window
