// SPDX-License-Identifier: Apache-2.0
#include "platform/window/TextureCanvas.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "platform/Mutex.h"

namespace zaffo::window {

namespace {

Uint8 toByte(double unit) {
  return static_cast<Uint8>(std::lround(std::clamp(unit, 0.0, 1.0) * 255));
}

int indexOfDriver(const char* driver) {
  for (int index = 0; index < SDL_GetNumRenderDrivers(); ++index) {
    SDL_RendererInfo info{};
    if (SDL_GetRenderDriverInfo(index, &info) == 0 && !std::strcmp(info.name, driver)) return index;
  }
  return -1;
}

/// SDL's conversion mode is one for the whole process, and read while a texture is made and drawn.
/// Windows take turns.
Mutex conversionModeMutex;

SDL_Rect toSDL(const PixelRect& rect) {
  return {rect.x, rect.y, rect.width, rect.height};
}

/// SDL wants the place of the picture before it is turned about its centre.
SDL_FRect unturned(const PixelRect& rect, bool sideways) {
  const auto x = static_cast<float>(rect.x), y = static_cast<float>(rect.y);
  const auto width = static_cast<float>(rect.width), height = static_cast<float>(rect.height);
  if (!sideways) return {x, y, width, height};
  return {x + (width - height) / 2, y + (height - width) / 2, height, width};
}

}  // namespace

Result<std::unique_ptr<Canvas>> TextureCanvas::create(SDL_Window* window, const char* driver) {
  const int index = indexOfDriver(driver);
  SDLRendererPtr renderer;
  if (index >= 0) {
    renderer.reset(
        SDL_CreateRenderer(window, index, SDL_RENDERER_ACCELERATED | SDL_RENDERER_PRESENTVSYNC));
  }
  if (renderer) return std::make_unique<TextureCanvas>(std::move(renderer));
  return makeSDLError(WindowError::NoRenderer,
                      std::string("The graphics driver offers no ") + driver + " renderer.");
}

TextureCanvas::TextureCanvas(SDLRendererPtr renderer)
    : renderer_(std::move(renderer)),
      textures_(renderer_.get()),
      premultiplied_(SDL_ComposeCustomBlendMode(
          SDL_BLENDFACTOR_ONE, SDL_BLENDFACTOR_ONE_MINUS_SRC_ALPHA, SDL_BLENDOPERATION_ADD,
          SDL_BLENDFACTOR_ONE, SDL_BLENDFACTOR_ONE_MINUS_SRC_ALPHA, SDL_BLENDOPERATION_ADD)) {}

void TextureCanvas::draw(const DisplayList& list) {
  SDL_Renderer* renderer = renderer_.get();
  // The window may have another size than at the last picture; asking for the whole of it is what
  // makes the renderer look.
  SDL_RenderSetViewport(renderer, nullptr);
  SDL_RenderSetClipRect(renderer, nullptr);
  SDL_SetRenderDrawColor(renderer, 0, 0, 0, 255);
  SDL_RenderClear(renderer);
  for (const DrawCommand& command : list.commands) {
    const SDL_Rect clip = toSDL(command.visible);
    SDL_RenderSetClipRect(renderer, &clip);
    const PixelRect& place = command.destination;
    if (const auto* color = std::get_if<CGColor>(&command.content)) {
      drawColor(command, *color);
    } else if (const auto* image = std::get_if<CGImagePtr>(&command.content)) {
      drawTexture(command, textures_.texture(*image, place.width, place.height), 0, false, true);
    } else if (const auto* picture = std::get_if<MovingPicture>(&command.content)) {
      const bool sideways = picture->quarterTurns % 2 == 1;
      const MutexLock lock(conversionModeMutex);
      const PictureTexture texture =
          textures_.texture(picture->buffer, sideways ? place.height : place.width,
                            sideways ? place.width : place.height);
      drawTexture(command, texture, picture->quarterTurns, picture->mirrored,
                  picture->buffer->format == CVPixelFormat::BGRA);
      SDL_RenderFlush(renderer);  // while the mode is this picture's
    }
  }
  SDL_RenderFlush(renderer);
}

void TextureCanvas::show() {
  SDL_RenderPresent(renderer_.get());
  textures_.endList();
}

void TextureCanvas::drawColor(const DrawCommand& command, const CGColor& color) {
  const SDL_Rect place = toSDL(command.visible);
  SDL_SetRenderDrawBlendMode(renderer_.get(), SDL_BLENDMODE_BLEND);
  SDL_SetRenderDrawColor(renderer_.get(), toByte(color.red), toByte(color.green),
                         toByte(color.blue), toByte(color.alpha * command.opacity));
  SDL_RenderFillRect(renderer_.get(), &place);
}

void TextureCanvas::drawTexture(const DrawCommand& command, const PictureTexture& texture,
                                int quarterTurns, bool mirrored, bool hasAlpha) {
  if (!texture.texture) return;
  const Uint8 opacity = toByte(command.opacity), color = hasAlpha ? opacity : 255;
  SDL_SetTextureBlendMode(texture.texture, hasAlpha        ? premultiplied_
                                           : opacity < 255 ? SDL_BLENDMODE_BLEND
                                                           : SDL_BLENDMODE_NONE);
  SDL_SetTextureAlphaMod(texture.texture, opacity);
  SDL_SetTextureColorMod(texture.texture, color, color, color);
  const SDL_FRect place = unturned(command.destination, quarterTurns % 2 == 1);
  SDL_RenderCopyExF(renderer_.get(), texture.texture, nullptr, &place, 90.0 * quarterTurns, nullptr,
                    mirrored ? SDL_FLIP_HORIZONTAL : SDL_FLIP_NONE);
}

}  // namespace zaffo::window
