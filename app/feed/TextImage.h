#pragma once

#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Draws UTF-8 text, white on transparent, centred and broken into lines at most `width` pixels
/// wide; `height` is the height of a line in pixels. Null when the text is empty or cannot be
/// drawn. The font is built into the program. Thread: main.
[[nodiscard]] CGImagePtr renderText(const std::string& text, int width, int height);

}  // namespace zaffo::feed
