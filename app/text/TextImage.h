// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "text/SystemFonts.h"

namespace zaffo::feed {

/// How a text is drawn. Lengths in points.
struct TextStyle {
  double size = 15;    ///< of the letters, from line to line about a sixth more
  double width = 300;  ///< of the longest line
  int lines = 0;       ///< the most; what does not fit ends in an ellipsis. 0: as many as it takes
  bool isCentred = false;
  CGColor color{1, 1, 1, 1};
  bool operator==(const TextStyle&) const = default;
};

/// Draws UTF-8 text on nothing, at `scale` pixels a point and as small as holds it: broken into
/// lines between words, each script in a font that has it and from its own side. The letters of
/// most alphabets are built into the program; for others the system's fonts are asked. Null when
/// the text is empty or cannot be drawn.
///
/// With `unanswered`, the system is not asked: a letter whose font is not known yet (SystemFonts)
/// is drawn as one that nobody has, and what to ask is put there. Thread: main.
[[nodiscard]] CGImagePtr renderText(const std::string& text, const TextStyle& style, double scale,
                                    std::set<SystemFonts::Question>* unanswered = nullptr);

}  // namespace zaffo::feed
