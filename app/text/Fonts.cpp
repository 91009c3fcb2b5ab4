// SPDX-License-Identifier: Apache-2.0
#include "text/Fonts.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>

#include "text/Letters.h"

extern "C" {
extern const unsigned char zaffo_feed_font[];      // NOLINT: named in Font.S
extern const unsigned char zaffo_feed_font_end[];  // NOLINT
}

namespace zaffo::feed {

namespace {

bool hasLetter(const Font& font, char32_t letter) {
  return TTF_GlyphIsProvided32(font.font.get(), letter) != 0;
}

}  // namespace

int Font::ascent() const {
  return static_cast<int>(std::lround(TTF_FontAscent(font.get()) * factor));
}

int Font::descent() const {
  return static_cast<int>(std::lround(-TTF_FontDescent(font.get()) * factor));
}

Fonts::Fonts(int pixels, bool mayWait)
    : pixels_(pixels), mayWait_(mayWait), isLibraryReady_(TTF_Init() == 0) {
  if (!isLibraryReady_) return;
  const auto size = static_cast<int>(zaffo_feed_font_end - zaffo_feed_font);
  auto font = std::make_unique<Font>();
  font->font.reset(TTF_OpenFontRW(SDL_RWFromConstMem(zaffo_feed_font, size), 1, pixels_));
  if (font->font) fonts_.push_back(std::move(font));
}

Fonts::~Fonts() {
  fonts_.clear();
  // Nothing of the library outlives the text.
  if (isLibraryReady_) TTF_Quit();
}

const Font& Fonts::fontOf(char32_t letter) {
  if (isEmoji(letter)) {
    for (const auto& font : fonts_)
      if (font->factor < 1 && hasLetter(*font, letter)) return *font;
    if (const Font* font = openSystemFont(letter, true)) return *font;
  }
  for (const auto& font : fonts_)
    if (hasLetter(*font, letter)) return *font;
  if (const Font* font = openSystemFont(letter, false)) return *font;
  return builtIn();
}

SystemFonts::Answer Fonts::fileFor(const SystemFonts::Question& question) {
  if (mayWait_) return SystemFonts::askNow(question);
  if (const auto* answer = SystemFonts::shared().answerTo(question)) return *answer;
  unanswered_.insert(question);
  return std::nullopt;
}

const Font* Fonts::openSystemFont(char32_t letter, bool inColor) {
  const SystemFonts::Question question{letter, inColor};
  if (missing_.contains(question)) return nullptr;
  const auto file = fileFor(question);
  auto font = std::make_unique<Font>();
  if (file) font->font.reset(TTF_OpenFontIndex(file->path.c_str(), pixels_, file->index));
  if (!font->font || !hasLetter(*font, letter)) {
    missing_.insert(question);
    return nullptr;
  }
  const int height = TTF_FontHeight(font->font.get());
  if (height > 2 * pixels_) font->factor = 1.2 * pixels_ / height;
  return fonts_.emplace_back(std::move(font)).get();
}

}  // namespace zaffo::feed
