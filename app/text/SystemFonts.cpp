// SPDX-License-Identifier: Apache-2.0
#include "text/SystemFonts.h"

#include <fontconfig/fontconfig.h>

#include <memory>
#include <utility>

namespace zaffo::feed {

namespace {

struct PatternDestroyer {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
using PatternPtr = std::unique_ptr<FcPattern, PatternDestroyer>;

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

}  // namespace

SystemFonts& SystemFonts::shared() {
  static auto* const fonts = new SystemFonts;  // never destroyed: a block may run until the end
  return *fonts;
}

const SystemFonts::Answer* SystemFonts::answerTo(const Question& question) const {
  const auto found = answers_.find(question);
  return found == answers_.end() ? nullptr : &found->second;
}

void SystemFonts::ask(std::set<Question> questions, std::function<void()> answered) {
  queue_->async([this, questions = std::move(questions), answered = std::move(answered)]() mutable {
    std::map<Question, Answer> answers;
    for (const Question& question : questions) answers.emplace(question, askNow(question));
    dispatch_async(dispatch_get_main_queue(),
                   [this, answers = std::move(answers), answered = std::move(answered)]() mutable {
                     answers_.merge(answers);
                     answered();
                   });
  });
}

SystemFonts::Answer SystemFonts::askNow(const Question& question) {
  const auto [letter, inColor] = question;
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

}  // namespace zaffo::feed
