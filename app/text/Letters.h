// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zaffo::feed {

/// A text as code points.
using Letters = std::u32string;

/// What is no UTF-8 becomes U+FFFD.
[[nodiscard]] Letters lettersOf(std::string_view utf8);
[[nodiscard]] std::string utf8Of(std::u32string_view letters);

/// Whether a letter is drawn onto the one before it, or joined with it.
[[nodiscard]] bool joinsTheLast(char32_t letter, char32_t last);
/// Whether a letter is a picture in colours wherever there is a font of such.
[[nodiscard]] bool isEmoji(char32_t letter);

/// Whether a line may end behind letter `index` of a text: between words, or anywhere between the
/// letters of a script that has no blanks.
[[nodiscard]] bool mayBreakBehind(const Letters& text, std::size_t index);

}  // namespace zaffo::feed
