// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/foundation/Result.h"
#include "platform/window/Canvas.h"
#include "platform/window/SDLCommon.h"
#include "platform/window/TextureCache.h"

namespace zaffo::window {

/// Draws with the graphics processor: pictures become textures, in the decoder's own format where
/// the processor knows its matrix and range. Thread: render thread.
class TextureCanvas : public Canvas {
 public:
  /// `driver` is SDL's name of the renderer. The window must outlive the canvas.
  static Result<std::unique_ptr<Canvas>> create(SDL_Window* window, const char* driver);
  explicit TextureCanvas(SDLRendererPtr renderer);

  void draw(const DisplayList& list) override;
  void show() override;
  [[nodiscard]] const TextureCache& textures() const { return textures_; }

 private:
  void drawColor(const DrawCommand& command, const CGColor& color);
  void drawTexture(const DrawCommand& command, const PictureTexture& texture, int quarterTurns,
                   bool mirrored, bool hasAlpha);

  SDLRendererPtr renderer_;
  TextureCache textures_;
  SDL_BlendMode premultiplied_;
};

}  // namespace zaffo::window
