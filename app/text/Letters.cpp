// SPDX-License-Identifier: Apache-2.0
#include "text/Letters.h"

#include <algorithm>

namespace zaffo::feed {

namespace {

constexpr char32_t kUnknown = 0xFFFD;

struct Range {
  char32_t first, last;
};

template <std::size_t Count>
bool isWithin(char32_t letter, const Range (&ranges)[Count]) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [&](Range range) { return letter >= range.first && letter <= range.last; });
}

/// How many bytes follow the first one of a letter, and the bits that the first one holds.
int bytesBehind(unsigned char first, char32_t& bits) {
  if (first < 0x80) return bits = first, 0;
  if (first >= 0xC2 && first < 0xE0) return bits = first & 0x1F, 1;
  if (first >= 0xE0 && first < 0xF0) return bits = first & 0x0F, 2;
  if (first >= 0xF0 && first < 0xF5) return bits = first & 0x07, 3;
  return -1;
}

bool isWrittenWithoutBlanks(char32_t letter) {
  constexpr Range kRanges[]{{0x2E80, 0x303F},   {0x3040, 0x30FF},  {0x3400, 0x4DBF},
                            {0x4E00, 0x9FFF},   {0xF900, 0xFAFF},  {0xFF01, 0xFF60},
                            {0x1F300, 0x1FAFF}, {0x20000, 0x3FFFF}};
  return isWithin(letter, kRanges);
}

/// Marks that stand at no line's beginning: closing brackets, full stops, small and long kana.
bool belongsToTheLast(char32_t letter) {
  static constexpr std::u32string_view kMarks =
      U"!),.:;?]}、。〉》」』】〕々ぁぃぅぇぉっゃゅょァィゥェォッャュョー・！），．：；？］｝…";
  return kMarks.find(letter) != std::u32string_view::npos;
}

bool belongsToTheNext(char32_t letter) {
  static constexpr std::u32string_view kMarks = U"([{〈《「『【〔（［｛";
  return kMarks.find(letter) != std::u32string_view::npos;
}

}  // namespace

Letters lettersOf(std::string_view utf8) {
  Letters letters;
  for (std::size_t at = 0; at < utf8.size();) {
    char32_t letter = 0;
    const int more = bytesBehind(static_cast<unsigned char>(utf8[at]), letter);
    std::size_t end = at + 1;
    for (int i = 0; i < more && end < utf8.size() && (utf8[end] & 0xC0) == 0x80; ++i)
      letter = (letter << 6) | (static_cast<unsigned char>(utf8[end++]) & 0x3F);
    const bool isWhole = more >= 0 && end == at + 1 + static_cast<std::size_t>(more);
    const bool isSurrogate = letter >= 0xD800 && letter <= 0xDFFF;
    letters += isWhole && !isSurrogate && letter <= 0x10FFFF ? letter : kUnknown;
    at = end;
  }
  return letters;
}

std::string utf8Of(std::u32string_view letters) {
  std::string utf8;
  for (const char32_t c : letters) {
    const auto add = [&](char32_t byte) { utf8 += static_cast<char>(byte); };
    if (c < 0x80) {
      add(c);
    } else if (c < 0x800) {
      add(0xC0 | (c >> 6)), add(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      add(0xE0 | (c >> 12)), add(0x80 | ((c >> 6) & 0x3F)), add(0x80 | (c & 0x3F));
    } else {
      add(0xF0 | (c >> 18)), add(0x80 | ((c >> 12) & 0x3F)), add(0x80 | ((c >> 6) & 0x3F)),
          add(0x80 | (c & 0x3F));
    }
  }
  return utf8;
}

bool joinsTheLast(char32_t letter, char32_t last) {
  constexpr char32_t kJoiner = 0x200D;
  constexpr Range kMarks[]{
      {0x0300, 0x036F},   {0x0483, 0x0489},  {0x0591, 0x05BD}, {0x0610, 0x061A}, {0x064B, 0x065F},
      {0x0900, 0x0903},   {0x093A, 0x094F},  {0x0E31, 0x0E31}, {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E},
      {0x200C, 0x200D},   {0x20D0, 0x20F0},  {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F},
      {0x1F3FB, 0x1F3FF}, {0xE0020, 0xE007F}};
  return last == kJoiner || isWithin(letter, kMarks);
}

bool isEmoji(char32_t letter) {
  constexpr Range kRanges[]{{0x231A, 0x231B}, {0x23E9, 0x23F3},   {0x2614, 0x2615},
                            {0x26BD, 0x26BE}, {0x2728, 0x2728},   {0x274C, 0x274C},
                            {0x2B50, 0x2B50}, {0x1F1E6, 0x1F1FF}, {0x1F300, 0x1FAFF}};
  return isWithin(letter, kRanges);
}

bool mayBreakBehind(const Letters& text, std::size_t index) {
  if (index + 1 >= text.size()) return true;
  const char32_t letter = text[index], next = text[index + 1];
  if (joinsTheLast(next, letter) || next == U' ') return false;
  static constexpr std::u32string_view kEnds = U" \t-_/\u200B";
  if (kEnds.find(letter) != std::u32string_view::npos) return true;
  if (belongsToTheLast(next) || belongsToTheNext(letter)) return false;
  return isWrittenWithoutBlanks(letter) || isWrittenWithoutBlanks(next);
}

}  // namespace zaffo::feed
