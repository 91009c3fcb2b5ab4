// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SDL_ttf.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "text/SystemFonts.h"

namespace zaffo::feed {

/// A font at one size.
struct Font {
  struct Closer {
    void operator()(TTF_Font* unused) const { TTF_CloseFont(unused); }
  };
  std::unique_ptr<TTF_Font, Closer> font;
  /// What its drawings are multiplied by: a font of pictures has one size only.
  double factor = 1;

  [[nodiscard]] int ascent() const;
  [[nodiscard]] int descent() const;
};

/// The fonts that one text needs, at one size: the one that is built into the program, and those of
/// the system that have what it lacks. Thread: main.
class Fonts {
 public:
  /// `pixels` is the size of the letters. Where it may not wait, the system is not asked for
  /// fonts: what was answered before has to do.
  Fonts(int pixels, bool mayWait);
  ~Fonts();
  Fonts(const Fonts&) = delete;
  Fonts& operator=(const Fonts&) = delete;

  /// Whether there is a font at all.
  [[nodiscard]] bool isReady() const { return !fonts_.empty(); }
  /// The font for a letter, the built-in one when none has it. Valid as long as this is.
  [[nodiscard]] const Font& fontOf(char32_t letter);
  /// What would have been asked otherwise.
  [[nodiscard]] const std::set<SystemFonts::Question>& unanswered() const { return unanswered_; }
  [[nodiscard]] const Font& builtIn() const { return *fonts_.front(); }

 private:
  [[nodiscard]] SystemFonts::Answer fileFor(const SystemFonts::Question& question);
  const Font* openSystemFont(char32_t letter, bool inColor);

  const int pixels_;
  const bool mayWait_;
  const bool isLibraryReady_;
  std::vector<std::unique_ptr<Font>> fonts_;
  std::set<SystemFonts::Question> missing_, unanswered_;
};

}  // namespace zaffo::feed
