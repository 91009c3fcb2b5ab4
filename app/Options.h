// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <variant>
#include <vector>

namespace zaffo::feed {

/// What the command line asks for.
struct Options {
  /// What happens when a clip has played to its end.
  enum class Loop {
    Looping,  ///< it does not end: it is laid end to end many times over
    Single,   ///< it starts again
    None,     ///< it stops on its last picture
  };

  std::vector<std::string> inputs;  ///< files, folders and URLs as given
  bool recursive = false;           ///< folders below folders too
  long start = 1;                   ///< the page to begin with, from 1
  bool headless = false;
  bool overlay = false;  ///< in pictures and offscreen, too
  double scale = 1;      ///< pixels a point, offscreen
  int width = 405;       ///< of the feed, in points
  int height = 720;      ///< of the feed, in points
  bool sound = true;
  bool fast = false;
  bool trace = false;
  Loop loop = Loop::Looping;
  std::string audioOut;     ///< WAV file; empty for none
  std::string scriptFile;   ///< empty for none
  std::string commands;     ///< script given on the command line; empty for none
  std::string statsFile;    ///< JSON file; empty for none
  std::string cacheFolder;  ///< for the bytes of remote clips; empty for memory alone
  std::string shotFile;     ///< PNG file of a headless run without a script

  [[nodiscard]] bool hasScript() const { return !scriptFile.empty() || !commands.empty(); }
};

/// Why the program ends before it starts: --help, --version or a mistake on the command line.
struct EarlyExit {
  int status = 0;    ///< 0, or 2 for a mistake
  std::string text;  ///< for standard output when the status is 0, for standard error otherwise
};

/// Reads a command line, the program's name first.
[[nodiscard]] std::variant<Options, EarlyExit> parseOptions(std::vector<std::string> arguments);

}  // namespace zaffo::feed
