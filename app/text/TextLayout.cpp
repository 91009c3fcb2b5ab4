// SPDX-License-Identifier: Apache-2.0
#include "text/TextLayout.h"

#include <fribidi.h>
#include <hb.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace zaffo::feed {

namespace {

constexpr char32_t kEllipsis = 0x2026;
constexpr std::size_t kMostLetters = 2000;

/// Text between two line feeds, with the direction of each letter: even levels run to the right.
struct Paragraph {
  Letters text;
  std::vector<FriBidiLevel> levels;
  bool isRightToLeft = false;
};

Paragraph paragraphOf(Letters text) {
  Paragraph paragraph{std::move(text), {}, false};
  const auto count = static_cast<FriBidiStrIndex>(paragraph.text.size());
  paragraph.levels.assign(paragraph.text.size(), 0);
  if (count == 0) return paragraph;
  const std::vector<FriBidiChar> letters(paragraph.text.begin(), paragraph.text.end());
  std::vector<FriBidiCharType> types(letters.size());
  std::vector<FriBidiBracketType> brackets(letters.size());
  fribidi_get_bidi_types(letters.data(), count, types.data());
  fribidi_get_bracket_types(letters.data(), count, types.data(), brackets.data());
  FriBidiParType direction = FRIBIDI_PAR_ON;
  const FriBidiLevel highest = fribidi_get_par_embedding_levels_ex(
      types.data(), brackets.data(), count, &direction, paragraph.levels.data());
  if (highest == 0) paragraph.levels.assign(paragraph.text.size(), 0);  // there was no memory
  paragraph.isRightToLeft = FRIBIDI_IS_RTL(direction);
  return paragraph;
}

std::string scriptOf(char32_t letter) {
  const hb_script_t script = hb_unicode_script(hb_unicode_funcs_get_default(), letter);
  if (script == HB_SCRIPT_COMMON || script == HB_SCRIPT_INHERITED || script == HB_SCRIPT_UNKNOWN)
    return {};
  char name[5]{};
  hb_tag_to_string(hb_script_to_iso15924_tag(script), name);
  return name;
}

/// Lays out one paragraph; the letters of its lines are ranges of it.
class ParagraphLayout {
 public:
  ParagraphLayout(const Paragraph& paragraph, Fonts& fonts, int width)
      : paragraph_(paragraph), fonts_(fonts), width_(width) {}

  [[nodiscard]] TextLine line(std::size_t from, std::size_t to) const {
    std::vector<std::pair<TextRun, FriBidiLevel>> runs = split(from, trimmed(from, to));
    reorder(runs);
    TextLine line;
    line.isRightToLeft = paragraph_.isRightToLeft;
    for (auto& [run, level] : runs) {
      run.width = widthOf(run);
      line.width += run.width;
      line.runs.push_back(std::move(run));
    }
    return line;
  }

  /// Where the line that begins at `from` ends: behind the last word that fits or, within a word
  /// that is longer than a line, behind the last letter.
  [[nodiscard]] std::size_t endOfLine(std::size_t from) const {
    const Letters& text = paragraph_.text;
    std::size_t end = from;
    for (std::size_t at = from; at < text.size(); ++at) {
      if (!mayBreakBehind(text, at)) continue;
      if (line(from, at + 1).width > width_) break;
      end = at + 1;
    }
    if (end > from) return end;
    end = from + 1;
    while (end < text.size() &&
           (joinsTheLast(text[end], text[end - 1]) || line(from, end + 1).width <= width_))
      ++end;
    return end;
  }

 private:
  /// Without the blanks at the line's end.
  [[nodiscard]] std::size_t trimmed(std::size_t from, std::size_t to) const {
    while (to > from && paragraph_.text[to - 1] == U' ') --to;
    return to;
  }

  [[nodiscard]] std::vector<std::pair<TextRun, FriBidiLevel>> split(std::size_t from,
                                                                    std::size_t to) const {
    std::vector<std::pair<TextRun, FriBidiLevel>> runs;
    for (std::size_t at = from; at < to; ++at) {
      const char32_t letter = paragraph_.text[at];
      const FriBidiLevel level = paragraph_.levels[at];
      const bool joins = at > from && joinsTheLast(letter, paragraph_.text[at - 1]);
      const Font* font = joins ? runs.back().first.font : &fonts_.fontOf(letter);
      const std::string script = scriptOf(letter);
      const bool continues = !runs.empty() && runs.back().second == level &&
                             runs.back().first.font == font &&
                             (script.empty() || runs.back().first.script.empty() ||
                              runs.back().first.script == script);
      if (!continues) runs.push_back({{{}, font, script, level % 2 == 1, 0}, level});
      TextRun& run = runs.back().first;
      run.letters += letter;
      if (run.script.empty()) run.script = script;
    }
    return runs;
  }

  /// From the highest level to the lowest odd one, whatever has that level or more is turned round.
  static void reorder(std::vector<std::pair<TextRun, FriBidiLevel>>& runs) {
    FriBidiLevel highest = 0;
    for (const auto& [run, level] : runs) highest = std::max(highest, level);
    for (FriBidiLevel level = highest; level > 0; --level) {
      for (auto begin = runs.begin(); begin != runs.end();) {
        begin = std::find_if(begin, runs.end(), [&](const auto& r) { return r.second >= level; });
        const auto end =
            std::find_if(begin, runs.end(), [&](const auto& r) { return r.second < level; });
        std::reverse(begin, end);
        begin = end;
      }
    }
  }

  static int widthOf(const TextRun& run) {
    int width = 0, height = 0;
    prepareFont(run);
    TTF_SizeUTF8(run.font->font.get(), utf8Of(run.letters).c_str(), &width, &height);
    return static_cast<int>(std::lround(width * run.font->factor));
  }

  const Paragraph& paragraph_;
  Fonts& fonts_;
  const int width_;
};

/// The line from `from` on, cut where an ellipsis still fits behind it.
TextLine shortened(const Paragraph& paragraph, std::size_t from, Fonts& fonts, int width) {
  Letters rest = paragraph.text.substr(from);
  while (true) {
    const Paragraph cut = paragraphOf(rest + kEllipsis);
    const TextLine line = ParagraphLayout(cut, fonts, width).line(0, cut.text.size());
    if (line.width <= width || rest.empty()) return line;
    rest.pop_back();
    while (!rest.empty() && rest.back() == U' ') rest.pop_back();
  }
}

std::vector<Paragraph> paragraphsOf(const Letters& text) {
  std::vector<Paragraph> paragraphs;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find(U'\n', from), text.size());
    paragraphs.push_back(paragraphOf(text.substr(from, end - from)));
    from = end + 1;
  }
  return paragraphs;
}

}  // namespace

void prepareFont(const TextRun& run) {
  TTF_SetFontDirection(run.font->font.get(),
                       run.isRightToLeft ? TTF_DIRECTION_RTL : TTF_DIRECTION_LTR);
  TTF_SetFontScriptName(run.font->font.get(), run.script.empty() ? "Zyyy" : run.script.c_str());
}

std::vector<TextLine> layOutText(const Letters& text, Fonts& fonts, int width, int most) {
  std::vector<TextLine> lines;
  for (const Paragraph& paragraph : paragraphsOf(text.substr(0, kMostLetters))) {
    const ParagraphLayout layout(paragraph, fonts, width);
    if (paragraph.text.empty()) lines.push_back({});
    for (std::size_t from = 0; from < paragraph.text.size();) {
      const std::size_t end = layout.endOfLine(from);
      const bool isLast = most > 0 && static_cast<int>(lines.size()) + 1 == most;
      if (isLast && end < paragraph.text.size()) {
        lines.push_back(shortened(paragraph, from, fonts, width));
        return lines;
      }
      lines.push_back(layout.line(from, end));
      from = end;
    }
    if (most > 0 && static_cast<int>(lines.size()) >= most) break;
  }
  return lines;
}

}  // namespace zaffo::feed
