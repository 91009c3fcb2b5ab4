// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zaffo::feed {
namespace {

using testing::HasSubstr;

std::variant<Options, EarlyExit> parsed(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "zaffo-feed");
  return parseOptions(std::move(arguments));
}

Options optionsOf(const std::vector<std::string>& arguments) {
  auto result = parsed(arguments);
  if (const auto* exit = std::get_if<EarlyExit>(&result)) {
    ADD_FAILURE() << exit->text;
    return {};
  }
  return std::get<Options>(result);
}

EarlyExit exitOf(const std::vector<std::string>& arguments) {
  auto result = parsed(arguments);
  if (std::holds_alternative<Options>(result)) {
    ADD_FAILURE() << "the command line is taken";
    return {};
  }
  return std::get<EarlyExit>(result);
}

TEST(Options, DefaultsAreThoseOfTheManual) {
  const Options options = optionsOf({"a.mp4"});
  EXPECT_THAT(options.inputs, testing::ElementsAre("a.mp4"));
  EXPECT_FALSE(options.headless);
  EXPECT_EQ(options.width, 405);
  EXPECT_EQ(options.height, 720);
  EXPECT_TRUE(options.sound);
  EXPECT_FALSE(options.recursive);
  EXPECT_EQ(options.start, 1);
  EXPECT_FALSE(options.overlay);
  EXPECT_EQ(options.scale, 1);
  EXPECT_FALSE(options.fast);
  EXPECT_FALSE(options.trace);
  EXPECT_EQ(options.loop, Options::Loop::Looping);
  EXPECT_FALSE(options.hasScript());
}

TEST(Options, EveryOptionArrives) {
  const Options options =
      optionsOf({"--headless", "--size",      "360x640",     "--script",   "s.txt",  "--stats",
                 "s.json",     "--audio-out", "a.wav",       "--no-sound", "--fast", "--trace",
                 "--loop",     "none",        "--recursive", "--start",    "5",      "--overlay",
                 "--scale",    "2",           "a",           "b"});
  EXPECT_TRUE(options.headless);
  EXPECT_TRUE(options.recursive);
  EXPECT_EQ(options.start, 5);
  EXPECT_TRUE(options.overlay);
  EXPECT_EQ(options.scale, 2);
  EXPECT_EQ(options.width, 360);
  EXPECT_EQ(options.height, 640);
  EXPECT_EQ(options.scriptFile, "s.txt");
  EXPECT_EQ(options.statsFile, "s.json");
  EXPECT_EQ(options.audioOut, "a.wav");
  EXPECT_FALSE(options.sound);
  EXPECT_TRUE(options.fast);
  EXPECT_TRUE(options.trace);
  EXPECT_EQ(options.loop, Options::Loop::None);
  EXPECT_THAT(options.inputs, testing::ElementsAre("a", "b"));
  EXPECT_EQ(optionsOf({"-e", "next; quit", "a"}).commands, "next; quit");
  EXPECT_EQ(optionsOf({"--headless", "--shot", "x.png", "a"}).shotFile, "x.png");
}

TEST(Options, HelpGoesToStandardOutputAndNamesEveryOption) {
  const EarlyExit exit = exitOf({"--help"});
  EXPECT_EQ(exit.status, 0);
  for (const char* option : {"--headless", "--size", "--script", "-e", "--stats", "--audio-out",
                             "--shot", "--no-sound", "--fast", "--trace", "--loop", "--recursive",
                             "--start", "--overlay", "--scale", "--version"}) {
    EXPECT_THAT(exit.text, HasSubstr(option));
  }
}

TEST(Options, VersionIsTheLibrarys) {
  const EarlyExit exit = exitOf({"--version"});
  EXPECT_EQ(exit.status, 0);
  EXPECT_THAT(exit.text, testing::MatchesRegex("zaffo-feed [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Options, NothingToPlayIsAUsageError) {
  const EarlyExit exit = exitOf({"--headless"});
  EXPECT_EQ(exit.status, 2);
  EXPECT_THAT(exit.text, HasSubstr("nothing to play"));
  EXPECT_THAT(exit.text, HasSubstr("zaffo-feed --help"));
}

TEST(Options, AnUnknownOptionIsAUsageError) {
  const EarlyExit exit = exitOf({"--hedless", "a"});
  EXPECT_EQ(exit.status, 2);
  EXPECT_THAT(exit.text, HasSubstr("--hedless"));
}

TEST(Options, ASizeThatIsNoneIsAUsageErrorThatSaysWhy) {
  for (const char* size : {"405", "405x", "x720", "405x720x1", "axb", "405 x 720 "}) {
    const EarlyExit exit = exitOf({"--size", size, "a"});
    EXPECT_EQ(exit.status, 2) << size;
    EXPECT_THAT(exit.text, HasSubstr("is not WIDTHxHEIGHT")) << size;
  }
  for (const char* size : {"0x720", "405x-1", "405x8193"}) {
    const EarlyExit exit = exitOf({"--size", size, "a"});
    EXPECT_EQ(exit.status, 2) << size;
    EXPECT_THAT(exit.text, HasSubstr("between 1 and 8192")) << size;
  }
}

TEST(Options, EveryKindOfLoopHasItsWord) {
  EXPECT_EQ(optionsOf({"--loop", "looping", "a"}).loop, Options::Loop::Looping);
  EXPECT_EQ(optionsOf({"--loop", "single", "a"}).loop, Options::Loop::Single);
  EXPECT_EQ(optionsOf({"--loop", "none", "a"}).loop, Options::Loop::None);
}

TEST(Options, AnUnknownKindOfLoopIsAUsageError) {
  EXPECT_EQ(exitOf({"--loop", "twice", "a"}).status, 2);
}

TEST(Options, PagesCountFromOneAndPixelsAPointAreForHeadlessRuns) {
  EXPECT_EQ(exitOf({"--start", "0", "a"}).status, 2);
  EXPECT_EQ(exitOf({"--headless", "--scale", "9", "a"}).status, 2);
  EXPECT_THAT(exitOf({"--scale", "2", "a"}).text, HasSubstr("--scale goes with --headless"));
}

TEST(Options, TwoScriptsAreAUsageError) {
  EXPECT_EQ(exitOf({"--script", "s.txt", "-e", "next", "a"}).status, 2);
}

TEST(Options, AShotIsForAHeadlessRunWithoutAScript) {
  EXPECT_EQ(exitOf({"--shot", "x.png", "a"}).status, 2);
  EXPECT_EQ(exitOf({"--headless", "-e", "next", "--shot", "x.png", "a"}).status, 2);
}

}  // namespace
}  // namespace zaffo::feed
