// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "text/Fonts.h"
#include "text/Letters.h"

namespace zaffo::feed {

/// Letters that are drawn in one go: in one font, one script and one direction.
struct TextRun {
  Letters letters;  ///< in the order in which they are read
  const Font* font = nullptr;
  std::string script;  ///< by ISO 15924: "Latn"
  bool isRightToLeft = false;
  int width = 0;  ///< pixels
};

struct TextLine {
  std::vector<TextRun> runs;  ///< from left to right
  bool isRightToLeft = false;
  int width = 0;  ///< pixels
};

/// Breaks a text into lines at most `width` pixels wide, between words where there are any, and
/// into the runs of each line. With `most` above 0 there are no more lines than that, and the last
/// one ends in an ellipsis where something is left out. Thread: main.
[[nodiscard]] std::vector<TextLine> layOutText(const Letters& text, Fonts& fonts, int width,
                                               int most);

/// Makes a run's font draw as the run is written. Thread: main.
void prepareFont(const TextRun& run);

}  // namespace zaffo::feed
