#pragma once

#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Draws UTF-8 text, white on nothing, centred and broken into lines at most `width` pixels wide;
/// `height` is that of a line of letters in pixels. Null when the text is empty or cannot be drawn.
/// The font is part of the program. Thread: main.
[[nodiscard]] CGImagePtr renderText(const std::string& text, int width, int height);

}  // namespace zaffo::feed
