// SPDX-License-Identifier: Apache-2.0

// Parses the bytes as a script of the feed.
#include <algorithm>
#include <string>
#include <tuple>

#include "fuzz/FuzzTarget.h"
#include "script/Script.h"

namespace zaffo::feed {
namespace {

using fuzz::require;

void examine(const ScriptError& error, const std::string& text) {
  const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
  require(error.line >= 1 && error.line <= lines, "a mistake is on a line of the script");
  require(error.column >= 1 && static_cast<std::size_t>(error.column) <= text.size() + 1,
          "a mistake is in a column of the script");
  require(!error.text.empty(), "a mistake is told");
}

void examine(const std::vector<Command>& commands) {
  auto last = std::tuple(0, 0);
  for (const Command& command : commands) {
    const auto place = std::tuple(command.line, command.column);
    require(place > last, "commands come in the order of the script");
    last = place;
    require(command.number >= 0 && command.number <= 86400, "numbers are in their range");
    require(command.word != Word::Goto || command.first >= 1, "pages count from 1");
    require(command.word != Word::Shot || !command.file.empty(), "a picture has a name");
  }
}

}  // namespace
}  // namespace zaffo::feed

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace zaffo::feed;
  const std::string text(data, data + size);
  const auto script = parseScript(text);
  if (const auto* error = std::get_if<ScriptError>(&script)) {
    examine(*error, text);
    return 0;
  }
  const auto& commands = std::get<std::vector<Command>>(script);
  examine(commands);
  if (const auto missing = findMissingPage(commands, 3)) examine(*missing, text);
  return 0;
}
