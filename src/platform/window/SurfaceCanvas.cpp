// SPDX-License-Identifier: Apache-2.0
#include "platform/window/SurfaceCanvas.h"

namespace zaffo::window {

Result<std::unique_ptr<Canvas>> SurfaceCanvas::create(SDL_Window* window) {
  if (SDL_GetWindowSurface(window)) return std::make_unique<SurfaceCanvas>(window);
  return makeSDLError(WindowError::NoRenderer,
                      "The display offers neither a graphics driver nor plain drawing.");
}

void SurfaceCanvas::draw(const DisplayList& list) {
  // Asked for each time: a window that changed its size has another surface.
  SDL_Surface* surface = SDL_GetWindowSurface(window_);
  if (!surface) return;
  const uint32_t format = surface->format->format;
  if (format == SDL_PIXELFORMAT_ARGB8888 || format == SDL_PIXELFORMAT_RGB888) {
    renderer_.draw(
        list, {static_cast<uint8_t*>(surface->pixels), surface->pitch, surface->w, surface->h});
  } else {
    const int stride = 4 * surface->w;
    pixels_.resize(static_cast<std::size_t>(stride) * static_cast<std::size_t>(surface->h));
    renderer_.draw(list, {pixels_.data(), stride, surface->w, surface->h});
    SDL_ConvertPixels(surface->w, surface->h, SDL_PIXELFORMAT_ARGB8888, pixels_.data(), stride,
                      format, surface->pixels, surface->pitch);
  }
}

void SurfaceCanvas::show() {
  SDL_UpdateWindowSurface(window_);  // does nothing when there was no surface to draw in
}

}  // namespace zaffo::window
