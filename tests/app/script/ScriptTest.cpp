// SPDX-License-Identifier: Apache-2.0
#include "script/Script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zaffo::feed {
namespace {

std::vector<Command> commandsOf(const std::string& text) {
  auto script = parseScript(text);
  if (const auto* error = std::get_if<ScriptError>(&script)) {
    ADD_FAILURE() << text << " gives " << error->line << ":" << error->column << ": "
                  << error->text;
    return {};
  }
  return std::get<std::vector<Command>>(script);
}

Command commandOf(const std::string& text) {
  const auto commands = commandsOf(text);
  EXPECT_EQ(commands.size(), 1u) << text;
  return commands.empty() ? Command{} : commands[0];
}

/// "line:column: text" of the mistake in a script; empty when there is none.
std::string mistakeIn(const std::string& text) {
  const auto script = parseScript(text);
  const auto* error = std::get_if<ScriptError>(&script);
  if (!error) return {};
  return std::to_string(error->line) + ":" + std::to_string(error->column) + ": " + error->text;
}

TEST(Script, KnowsEveryWordWithoutArguments) {
  const auto commands = commandsOf("next\nprev\nwait-frame\nplay\npause\nstate\nreset\nquit");
  std::vector<Word> words;
  for (const auto& command : commands) words.push_back(command.word);
  EXPECT_THAT(words, testing::ElementsAre(Word::Next, Word::Prev, Word::WaitFrame, Word::Play,
                                          Word::Pause, Word::State, Word::Reset, Word::Quit));
}

TEST(Script, ReadsTheNumberOfAPage) {
  const Command command = commandOf("goto 12");
  EXPECT_EQ(command.word, Word::Goto);
  EXPECT_EQ(command.first, 12);
}

TEST(Script, ReadsSeconds) {
  EXPECT_EQ(commandOf("wait 0.5").word, Word::Wait);
  EXPECT_DOUBLE_EQ(commandOf("wait 0.5").number, 0.5);
  EXPECT_EQ(commandOf("seek 3.37").word, Word::Seek);
  EXPECT_DOUBLE_EQ(commandOf("seek 3.37").number, 3.37);
}

TEST(Script, ReadsARateAndAVolume) {
  EXPECT_EQ(commandOf("rate 2").word, Word::Rate);
  EXPECT_DOUBLE_EQ(commandOf("rate 2").number, 2);
  EXPECT_EQ(commandOf("volume 0.25").word, Word::Volume);
  EXPECT_DOUBLE_EQ(commandOf("volume 0.25").number, 0.25);
}

TEST(Script, ReadsTheNameOfAPicture) {
  EXPECT_EQ(commandOf("shot a.png").word, Word::Shot);
  EXPECT_EQ(commandOf("shot a.png").file, "a.png");
}

TEST(Script, ReadsSwitches) {
  EXPECT_EQ(commandOf("idle on").word, Word::Idle);
  EXPECT_TRUE(commandOf("idle on").on);
  EXPECT_FALSE(commandOf("idle off").on);
  EXPECT_EQ(commandOf("fast on").word, Word::Fast);
  EXPECT_TRUE(commandOf("fast on").on);
  EXPECT_FALSE(commandOf("fast off").on);
}

TEST(Script, ReadsBoundsOfEitherSign) {
  const Command command = commandOf("bounds 4 -1");
  EXPECT_EQ(command.word, Word::Bounds);
  EXPECT_EQ(command.first, 4);
  EXPECT_EQ(command.second, -1);
}

TEST(Script, SemicolonsAndLineEndsSeparateCommands) {
  EXPECT_EQ(commandsOf("next; prev\nplay;;\n\n;pause\r\nquit").size(), 5u);
}

TEST(Script, ACommentRunsToTheEndOfItsLine) {
  EXPECT_EQ(commandsOf("# all of it; quit\nnext # half; of it\nprev").size(), 2u);
}

TEST(Script, QuotesKeepBlanksSemicolonsAndHashes) {
  EXPECT_EQ(commandOf("shot \"my #1; picture.png\"").file, "my #1; picture.png");
}

TEST(Script, AnEmptyScriptHasNoCommands) {
  EXPECT_TRUE(commandsOf("").empty());
  EXPECT_TRUE(commandsOf(" \n # nothing\n;").empty());
}

TEST(Script, RemembersWhereACommandStands) {
  const auto commands = commandsOf("next;\n  goto 2");
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[1].line, 2);
  EXPECT_EQ(commands[1].column, 3);
}

TEST(Script, ReportsAnUnknownWordWithLineAndColumn) {
  EXPECT_EQ(mistakeIn("next; nxt"), "1:7: unknown word 'nxt'");
  EXPECT_EQ(mistakeIn("next\n\n   Next"), "3:4: unknown word 'Next'");
}

TEST(Script, ReportsAMissingArgumentAtItsWord) {
  EXPECT_EQ(mistakeIn("play\n wait"), "2:2: too little: say 'wait SECONDS'");
  EXPECT_EQ(mistakeIn("bounds 3"), "1:1: too little: say 'bounds MAX IDLE'");
}

TEST(Script, ReportsTheFirstArgumentTooMany) {
  EXPECT_EQ(mistakeIn("next 2 3"), "1:6: '2' is too much: say 'next'");
  EXPECT_EQ(mistakeIn("goto 1 2"), "1:8: '2' is too much: say 'goto N'");
}

TEST(Script, ReportsArgumentsThatAreNoNumbers) {
  EXPECT_EQ(mistakeIn("wait soon"), "1:6: 'soon' is not a number");
  EXPECT_EQ(mistakeIn("wait 1x"), "1:6: '1x' is not a number");
  EXPECT_EQ(mistakeIn("goto 1.5"), "1:6: '1.5' is not the number of a page");
  EXPECT_EQ(mistakeIn("bounds 1 two"), "1:10: 'two' is not a whole number");
}

TEST(Script, ReportsNumbersOutOfRange) {
  EXPECT_EQ(mistakeIn("goto 0"), "1:6: pages count from 1");
  EXPECT_EQ(mistakeIn("wait -1"), "1:6: '-1' is not between 0 and 86400 seconds");
  EXPECT_EQ(mistakeIn("wait nan"), "1:6: 'nan' is not between 0 and 86400 seconds");
  EXPECT_EQ(mistakeIn("seek inf"), "1:6: 'inf' is not between 0 and 86400 seconds");
  EXPECT_EQ(mistakeIn("rate 17"), "1:6: '17' is not a rate between 0 and 16");
  EXPECT_EQ(mistakeIn("volume 1.1"), "1:8: '1.1' is not a volume between 0 and 1");
  EXPECT_EQ(mistakeIn("goto 99999999999999999999"),
            "1:6: '99999999999999999999' is not the number of a page");
}

TEST(Script, ReportsASwitchThatIsNeitherOnNorOff) {
  EXPECT_EQ(mistakeIn("idle yes"), "1:6: 'yes' is neither on nor off");
}

TEST(Script, ReportsAQuoteThatIsNotClosedOnItsLine) {
  EXPECT_EQ(mistakeIn("shot \"a.png"), "1:6: this quote is never closed");
  EXPECT_EQ(mistakeIn("shot \"a.png\nquit\""), "1:6: this quote is never closed");
  EXPECT_EQ(mistakeIn("shot \"\""), "1:6: the file needs a name");
}

TEST(Script, FindsAPageThatTheFeedDoesNotHave) {
  const auto commands = commandsOf("goto 3;\n goto 4");
  EXPECT_EQ(findMissingPage(commands, 4), nullptr);
  const auto missing = findMissingPage(commands, 3);
  ASSERT_NE(missing, nullptr);
  EXPECT_EQ(missing->line, 2);
  EXPECT_EQ(missing->column, 2);
  EXPECT_EQ(missing->text, "there is no page 4; the last one is 3");
}

}  // namespace
}  // namespace zaffo::feed
