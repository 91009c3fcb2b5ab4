// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

namespace {

constexpr int kUsageError = 2;
constexpr int kLargestSide = 8192;
constexpr long kMostPages = 1'000'000;

/// Reads "405x720" into the two sides; returns what is wrong, or an empty string.
std::string readSize(const std::string& text, Options& options) {
  int width = 0, height = 0, length = 0;
  const int fields = std::sscanf(text.c_str(), "%dx%d%n", &width, &height, &length);
  if (fields != 2 || static_cast<std::size_t>(length) != text.size())
    return "'" + text + "' is not WIDTHxHEIGHT, such as 405x720";
  if (width < 1 || height < 1 || width > kLargestSide || height > kLargestSide)
    return "the sides of '" + text + "' must lie between 1 and " + std::to_string(kLargestSide);
  options.width = width;
  options.height = height;
  return {};
}

void describe(CLI::App& app, Options& options) {
  app.set_version_flag("--version", std::string("zaffo-feed ") + ZaffoPlaybackVersionString,
                       "Print the version and exit");
  app.add_option(
         "inputs", options.inputs,
         "Video files, folders of them, lists of them (M3U), or URLs, in feed order; - for a list "
         "of these on standard input")
      ->type_name("FILE|FOLDER|URL");
  app.add_flag("--recursive", options.recursive, "Look into the folders below a folder, too");
  app.add_option("--start", options.start, "Page to begin with (1)")
      ->type_name("N")
      ->check(CLI::Range(1L, kMostPages).description(""));
  app.add_flag("--headless", options.headless, "Render offscreen; no display is needed");
  app.add_flag("--overlay", options.overlay,
               "Show title, bar and marks in pictures that are written, too");
  app.add_option("--scale", options.scale, "Pixels a point of a headless run (1)")
      ->type_name("S")
      ->check(CLI::Range(0.5, 4.0).description(""));
  app.add_option_function<std::string>(
         "--size",
         [&options](const std::string& text) {
           if (const auto wrong = readSize(text, options); !wrong.empty())
             throw CLI::ValidationError("--size", wrong);
         },
         "Size of the feed in points (405x720)")
      ->type_name("WxH");
  auto* script = app.add_option("--script", options.scriptFile, "Run the commands in this file")
                     ->type_name("FILE");
  app.add_option("-e", options.commands, "Run these commands")
      ->type_name("COMMANDS")
      ->excludes(script);
  app.add_option("--stats", options.statsFile, "Write figures of the run to this file")
      ->type_name("FILE.json");
  app.add_option("--audio-out", options.audioOut, "Write all sound that is played to this file")
      ->type_name("FILE.wav");
  app.add_option("--shot", options.shotFile,
                 "Picture written by a headless run without a script (zaffo-feed.png)")
      ->type_name("FILE.png");
  app.add_option("--cache", options.cacheFolder,
                 "Keep what is fetched of remote clips in this folder, 256 MiB at most")
      ->type_name("FOLDER");
  app.add_flag("!--no-sound", options.sound, "Leave the sound device alone");
  app.add_flag("--fast", options.fast, "Use the fast player for local files");
  app.add_flag("--trace", options.trace, "Print what the players tell about their work");
  const std::map<std::string, Options::Loop> loops{{"looping", Options::Loop::Looping},
                                                   {"single", Options::Loop::Single},
                                                   {"none", Options::Loop::None}};
  app.add_option("--loop", options.loop,
                 "What a clip does at its end: go on without a gap (looping, the default), start "
                 "again (single) or stand still (none)")
      ->type_name("looping|single|none")
      ->transform(CLI::CheckedTransformer(loops).description(""));
}

/// Mistakes that CLI11 cannot check for; empty when all is well.
std::string contradiction(const Options& options) {
  if (options.inputs.empty()) return "nothing to play: name a file, a folder or a URL";
  if (options.scale != 1 && !options.headless)
    return "--scale goes with --headless; a window has its display's scale";
  if (!options.shotFile.empty() && (!options.headless || options.hasScript()))
    return "--shot goes with --headless and without a script; in a script say 'shot FILE.png'";
  return {};
}

EarlyExit usageError(const std::string& text) {
  return {kUsageError, "zaffo-feed: " + text + "\nRun 'zaffo-feed --help' for help.\n"};
}

}  // namespace

std::variant<Options, EarlyExit> parseOptions(std::vector<std::string> arguments) {
  Options options;
  CLI::App app{"Shows videos as a feed: one to a page, the one in view playing.", "zaffo-feed"};
  describe(app, options);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  if (!reversed.empty()) reversed.pop_back();
  try {
    app.parse(std::move(reversed));
  } catch (const CLI::CallForVersion& version) {
    return EarlyExit{0, std::string(version.what()) + "\n"};
  } catch (const CLI::CallForHelp&) {
    return EarlyExit{0, app.help()};
  } catch (const CLI::ParseError& error) {
    return usageError(error.what());
  }
  if (const auto wrong = contradiction(options); !wrong.empty()) return usageError(wrong);
  return options;
}

}  // namespace zaffo::feed
