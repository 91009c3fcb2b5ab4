// SPDX-License-Identifier: Apache-2.0
#include "text/Fonts.h"

#include <SDL.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "text/Letters.h"

extern "C" {
extern const unsigned char zaffo_feed_font[];      // NOLINT: named in Font.S
extern const unsigned char zaffo_feed_font_end[];  // NOLINT
}

namespace zaffo::feed {

namespace {

struct PatternDestroyer {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
using PatternPtr = std::unique_ptr<FcPattern, PatternDestroyer>;

struct FontFile {
  std::string path;
  long index = 0;
};

PatternPtr patternFor(char32_t letter, bool inColor) {
  PatternPtr pattern(FcPatternCreate());
  FcCharSet* letters = FcCharSetCreate();
  FcCharSetAddChar(letters, letter);
  FcPatternAddCharSet(pattern.get(), FC_CHARSET, letters);
  FcCharSetDestroy(letters);
  const char* family = inColor ? "emoji" : "sans-serif";
  FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(family));
  if (inColor) FcPatternAddBool(pattern.get(), FC_COLOR, FcTrue);
  FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
  FcDefaultSubstitute(pattern.get());
  return pattern;
}

/// The system's font that has a letter, in colours if asked for.
std::optional<FontFile> systemFontWith(char32_t letter, bool inColor) {
  FcResult result{};
  const PatternPtr match(FcFontMatch(nullptr, patternFor(letter, inColor).get(), &result));
  if (!match) return std::nullopt;
  FcCharSet* letters = nullptr;
  FcChar8* path = nullptr;
  int index = 0;
  FcBool isColored = FcFalse;
  if (FcPatternGetCharSet(match.get(), FC_CHARSET, 0, &letters) != FcResultMatch ||
      !FcCharSetHasChar(letters, letter) ||
      FcPatternGetString(match.get(), FC_FILE, 0, &path) != FcResultMatch)
    return std::nullopt;
  FcPatternGetInteger(match.get(), FC_INDEX, 0, &index);
  FcPatternGetBool(match.get(), FC_COLOR, 0, &isColored);
  if (inColor && !isColored) return std::nullopt;
  return FontFile{reinterpret_cast<const char*>(path), index};
}

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

Fonts::Fonts(int pixels) : pixels_(pixels), isLibraryReady_(TTF_Init() == 0) {
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

const Font* Fonts::openSystemFont(char32_t letter, bool inColor) {
  const char32_t key = letter | (inColor ? 0x80000000 : 0);
  if (missing_.contains(key)) return nullptr;
  const auto file = systemFontWith(letter, inColor);
  auto font = std::make_unique<Font>();
  if (file) font->font.reset(TTF_OpenFontIndex(file->path.c_str(), pixels_, file->index));
  if (!font->font || !hasLetter(*font, letter)) {
    missing_.insert(key);
    return nullptr;
  }
  const int height = TTF_FontHeight(font->font.get());
  if (height > 2 * pixels_) font->factor = 1.2 * pixels_ / height;
  return fonts_.emplace_back(std::move(font)).get();
}

}  // namespace zaffo::feed
