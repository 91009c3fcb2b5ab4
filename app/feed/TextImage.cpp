#include "feed/TextImage.h"

#include <SDL.h>
#include <SDL_ttf.h>

#include <cstring>

extern "C" {
extern const unsigned char zaffo_feed_font[];      // NOLINT: named in Font.S
extern const unsigned char zaffo_feed_font_end[];  // NOLINT
}

namespace zaffo::feed {

namespace {

struct FontCloser {
  void operator()(TTF_Font* font) const { TTF_CloseFont(font); }
};
struct SurfaceFreer {
  void operator()(SDL_Surface* surface) const { SDL_FreeSurface(surface); }
};
using FontPtr = std::unique_ptr<TTF_Font, FontCloser>;
using SurfacePtr = std::unique_ptr<SDL_Surface, SurfaceFreer>;

/// Keeps the text library initialised while one text is drawn, so that nothing of it outlives
/// main().
class TextLibrary {
 public:
  TextLibrary() : ready_(TTF_Init() == 0) {}
  ~TextLibrary() {
    if (ready_) TTF_Quit();
  }
  TextLibrary(const TextLibrary&) = delete;
  TextLibrary& operator=(const TextLibrary&) = delete;
  [[nodiscard]] bool isReady() const { return ready_; }

 private:
  bool ready_;
};

FontPtr openFont(int height) {
  const auto size = static_cast<int>(zaffo_feed_font_end - zaffo_feed_font);
  return FontPtr(TTF_OpenFontRW(SDL_RWFromConstMem(zaffo_feed_font, size), 1, height));
}

uint8_t premultiplied(uint8_t value, uint8_t alpha) {
  return static_cast<uint8_t>((value * alpha + 127) / 255);
}

/// The library draws with straight alpha; images hold it premultiplied.
CGImagePtr imageOf(const SDL_Surface& surface) {
  const auto width = static_cast<std::size_t>(surface.w);
  const auto height = static_cast<std::size_t>(surface.h);
  std::vector<uint8_t> pixels(width * height * 4);
  for (std::size_t y = 0; y < height; ++y) {
    const auto* row =
        static_cast<const uint8_t*>(surface.pixels) + y * static_cast<std::size_t>(surface.pitch);
    for (std::size_t x = 0; x < width; ++x) {
      const uint8_t* from = row + x * 4;
      uint8_t* to = &pixels[(y * width + x) * 4];
      for (int channel = 0; channel < 3; ++channel)
        to[channel] = premultiplied(from[channel], from[3]);
      to[3] = from[3];
    }
  }
  return std::make_shared<const CGImage>(surface.w, surface.h, width * 4, std::move(pixels));
}

}  // namespace

CGImagePtr renderText(const std::string& text, int width, int height) {
  const TextLibrary library;
  if (text.empty() || !library.isReady()) return nullptr;
  const FontPtr font = openFont(height);
  if (!font) return nullptr;
  TTF_SetFontWrappedAlign(font.get(), TTF_WRAPPED_ALIGN_CENTER);
  const SurfacePtr drawn(TTF_RenderUTF8_Blended_Wrapped(
      font.get(), text.c_str(), {255, 255, 255, 255}, static_cast<Uint32>(std::max(width, 1))));
  if (!drawn) return nullptr;
  const SurfacePtr bgra(SDL_ConvertSurfaceFormat(drawn.get(), SDL_PIXELFORMAT_BGRA32, 0));
  return bgra ? imageOf(*bgra) : nullptr;
}

}  // namespace zaffo::feed
