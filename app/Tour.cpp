// SPDX-License-Identifier: Apache-2.0
#include "Tour.h"

#include <algorithm>
#include <filesystem>

namespace zaffo::feed {

namespace {

constexpr int kMostPages = 12;
constexpr double kSecondsAPage = 1;

Command command(Word word) {
  Command result;
  result.word = word;
  return result;
}

}  // namespace

Tour::Tour(const Options& options, int pageCount)
    : isWanted_(options.headless && !options.hasScript()),
      pages_(std::min(pageCount, kMostPages)),
      picture_(
          std::filesystem::absolute(options.shotFile.empty() ? "zaffo-feed.png" : options.shotFile)
              .lexically_normal()
              .string()) {}

std::vector<Command> Tour::commands() const {
  Command play = command(Word::Wait);
  play.number = kSecondsAPage;
  Command shot = command(Word::Shot);
  shot.file = picture_;
  std::vector<Command> commands;
  for (int page = 0; page < pages_; ++page) {
    if (page > 0) commands.push_back(command(Word::Next));
    commands.push_back(command(Word::WaitFrame));
    commands.push_back(play);
    if (page == 0) commands.push_back(shot);
  }
  return commands;
}

std::string Tour::lastLine() const {
  return "A picture of the feed: " + picture_;
}

}  // namespace zaffo::feed
