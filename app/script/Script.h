// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace zaffo::feed {

/// The words of a script, in the order of the manual.
enum class Word {
  Next,       ///< to the next page
  Prev,       ///< to the previous page
  Goto,       ///< to a page, counted from 1
  Wait,       ///< seconds
  WaitFrame,  ///< until the current video's first frame is on screen
  Play,
  Pause,
  Rate,
  Seek,     ///< seconds from the start of the video
  Volume,   ///< 0 to 1
  Shot,     ///< writes a PNG
  State,    ///< prints the pool
  Idle,     ///< whether the pool is told that the main thread is idle
  Fast,     ///< which kind of player the pool makes
  Bounds,   ///< the pool's two bounds
  Reset,    ///< a reset of the media services
  Press,    ///< a key, or a notch of the wheel
  Pointer,  ///< a button or a finger goes down, moves or goes up
  Window,   ///< what happens to the window: it is hidden, or shown again
  Drop,     ///< a file or folder is let go over the window
  Status,   ///< prints what a person sees and hears
  Quit,
};

/// One command of a script with its arguments.
struct Command {
  Word word = Word::Quit;
  double number = 0;   ///< Wait, Rate, Seek, Volume; Pointer: from the left
  double down = 0;     ///< Pointer: from the top
  long first = 0;      ///< Goto: the page; Bounds: the most players in all
  long second = 0;     ///< Bounds: the most players while idle
  bool on = false;     ///< Idle, Fast; Window: whether it is shown
  std::string file{};  ///< Shot, Drop
  std::string what{};  ///< Press: the key; Pointer: down, move or up
  int line = 1;        ///< where its word stands
  int column = 1;
};

/// What is wrong with a script, and where; lines and columns (in bytes) count from 1.
struct ScriptError {
  int line = 0;
  int column = 0;
  std::string text;
};

/// Reads a script: commands end at a line's end or a semicolon, `#` starts a comment that runs to
/// the end of the line, and an argument that contains blanks, semicolons or `#` goes in double
/// quotes. Reports the first mistake.
[[nodiscard]] std::variant<std::vector<Command>, ScriptError> parseScript(const std::string& text);

/// The first `goto` to a page that a feed of `pageCount` does not have; null when there is none.
[[nodiscard]] std::unique_ptr<ScriptError> findMissingPage(const std::vector<Command>& commands,
                                                           long pageCount);

}  // namespace zaffo::feed
