// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <map>

#include "script/Script.h"
#include "script/ScriptTokens.h"

namespace zaffo::feed {

namespace {

/// The arguments of a word, for checking their number and for the message about it.
struct Grammar {
  Word word;
  std::size_t arguments;
  const char* usage;
};

const std::map<std::string, Grammar> kWords{
    {"next", {Word::Next, 0, "next"}},
    {"prev", {Word::Prev, 0, "prev"}},
    {"goto", {Word::Goto, 1, "goto N"}},
    {"wait", {Word::Wait, 1, "wait SECONDS"}},
    {"wait-frame", {Word::WaitFrame, 0, "wait-frame"}},
    {"play", {Word::Play, 0, "play"}},
    {"pause", {Word::Pause, 0, "pause"}},
    {"rate", {Word::Rate, 1, "rate R"}},
    {"seek", {Word::Seek, 1, "seek SECONDS"}},
    {"volume", {Word::Volume, 1, "volume V"}},
    {"shot", {Word::Shot, 1, "shot FILE.png"}},
    {"state", {Word::State, 0, "state"}},
    {"idle", {Word::Idle, 1, "idle on|off"}},
    {"fast", {Word::Fast, 1, "fast on|off"}},
    {"bounds", {Word::Bounds, 2, "bounds MAX IDLE"}},
    {"reset", {Word::Reset, 0, "reset"}},
    {"press", {Word::Press, 1, "press KEY"}},
    {"pointer", {Word::Pointer, 3, "pointer down|move|up X Y"}},
    {"window", {Word::Window, 1, "window show|hide"}},
    {"drop", {Word::Drop, 1, "drop FILE"}},
    {"status", {Word::Status, 0, "status"}},
    {"quit", {Word::Quit, 0, "quit"}},
};

ScriptError errorAt(const Token& token, std::string text) {
  return {token.line, token.column, std::move(text)};
}

template <typename Number>
Number readNumber(const Token& token, const char* kind) {
  Number value{};
  const char* end = token.text.data() + token.text.size();
  const auto result = std::from_chars(token.text.data(), end, value);
  if (result.ec != std::errc{} || result.ptr != end)
    throw errorAt(token, "'" + token.text + "' is not " + kind);
  return value;
}

double readReal(const Token& token, double least, double most, const char* range) {
  const auto value = readNumber<double>(token, "a number");
  if (!(value >= least && value <= most))
    throw errorAt(token, "'" + token.text + "' is not " + range);
  return value;
}

bool readSwitch(const Token& token) {
  if (token.text == "on") return true;
  if (token.text == "off") return false;
  throw errorAt(token, "'" + token.text + "' is neither on nor off");
}

/// One of two or three words; the text of the error lists them.
std::string readChoice(const Token& token, std::initializer_list<const char*> choices,
                       const char* list) {
  if (std::find(choices.begin(), choices.end(), token.text) == choices.end())
    throw errorAt(token, "'" + token.text + "' is not " + list);
  return token.text;
}

constexpr double kLongest = 86400;  // a day: more is a typing error
constexpr double kFarthest = 1e5;   // points

void readArguments(const Sentence& words, Command& command) {
  switch (command.word) {
    case Word::Goto:
      command.first = readNumber<long>(words[1], "the number of a page");
      if (command.first < 1) throw errorAt(words[1], "pages count from 1");
      break;
    case Word::Wait:
    case Word::Seek:
      command.number = readReal(words[1], 0, kLongest, "between 0 and 86400 seconds");
      break;
    case Word::Rate:
      command.number = readReal(words[1], 0, 16, "a rate between 0 and 16");
      break;
    case Word::Volume:
      command.number = readReal(words[1], 0, 1, "a volume between 0 and 1");
      break;
    case Word::Drop:
    case Word::Shot:
      if (words[1].text.empty()) throw errorAt(words[1], "the file needs a name");
      command.file = words[1].text;
      break;
    case Word::Idle:
    case Word::Fast:
      command.on = readSwitch(words[1]);
      break;
    case Word::Press:
      if (words[1].text.empty()) throw errorAt(words[1], "the key needs a name");
      command.what = words[1].text;
      break;
    case Word::Pointer:
      command.what = readChoice(words[1], {"down", "move", "up"}, "down, move or up");
      command.number = readReal(words[2], -kFarthest, kFarthest, "a place in the window");
      command.down = readReal(words[3], -kFarthest, kFarthest, "a place in the window");
      break;
    case Word::Window:
      command.on = readChoice(words[1], {"show", "hide"}, "show or hide") == "show";
      break;
    case Word::Bounds:
      command.first = readNumber<long>(words[1], "a whole number");
      command.second = readNumber<long>(words[2], "a whole number");
      break;
    default:
      break;
  }
}

Command readCommand(const Sentence& words) {
  const auto found = kWords.find(words[0].text);
  if (found == kWords.end()) throw errorAt(words[0], "unknown word '" + words[0].text + "'");
  const Grammar& grammar = found->second;
  if (words.size() - 1 < grammar.arguments)
    throw errorAt(words[0], std::string("too little: say '") + grammar.usage + "'");
  if (words.size() - 1 > grammar.arguments)
    throw errorAt(words[grammar.arguments + 1], "'" + words[grammar.arguments + 1].text +
                                                    "' is too much: say '" + grammar.usage + "'");
  Command command;
  command.word = grammar.word;
  command.line = words[0].line;
  command.column = words[0].column;
  readArguments(words, command);
  return command;
}

}  // namespace

std::variant<std::vector<Command>, ScriptError> parseScript(const std::string& text) {
  auto sentences = splitScript(text);
  if (auto* error = std::get_if<ScriptError>(&sentences)) return *error;
  std::vector<Command> commands;
  try {
    for (const Sentence& words : std::get<std::vector<Sentence>>(sentences))
      commands.push_back(readCommand(words));
  } catch (const ScriptError& error) {
    return error;
  }
  return commands;
}

std::unique_ptr<ScriptError> findMissingPage(const std::vector<Command>& commands, long pageCount) {
  for (const Command& command : commands) {
    if (command.word != Word::Goto || command.first <= pageCount) continue;
    return std::make_unique<ScriptError>(
        ScriptError{command.line, command.column,
                    "there is no page " + std::to_string(command.first) + "; the last one is " +
                        std::to_string(pageCount)});
  }
  return nullptr;
}

}  // namespace zaffo::feed
