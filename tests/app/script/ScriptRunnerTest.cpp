// SPDX-License-Identifier: Apache-2.0
#include "script/ScriptRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tour.h"
#include "doubles/ManualTime.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;

/// Writes down what a script asks for; the waits end when a test says, with what it says.
class RecordingHost final : public ScriptHost {
 public:
  void scrollBy(int pages) override { note("by " + std::to_string(pages)); }
  void scrollTo(int page) override { note("to " + std::to_string(page)); }
  void waitForFrame(Outcome done) override { wait("frame", std::move(done)); }
  void setRate(float rate) override { note("rate " + std::to_string(rate).substr(0, 3)); }
  void seek(double seconds, Outcome done) override {
    wait("seek " + std::to_string(seconds).substr(0, 4), std::move(done));
  }
  void setVolume(float volume) override { note("volume " + std::to_string(volume).substr(0, 3)); }
  void shot(const std::string& file, Outcome done) override {
    wait("shot " + file, std::move(done));
  }
  void printState() override { note("state"); }
  void setIdle(bool on) override { note(on ? "idle" : "busy"); }
  void setFast(bool on) override { note(on ? "fast" : "native"); }
  void setBounds(long most, long idle) override {
    note("bounds " + std::to_string(most) + " " + std::to_string(idle));
  }
  void resetMediaServices() override { note("reset"); }
  void sendInput(InputEvent event) override {
    note("input");
    inputs.push_back(std::move(event));
  }
  void printStatus() override { note("status"); }

  std::vector<std::string> asked;
  std::vector<InputEvent> inputs;
  Outcome waiting;

 private:
  void note(std::string what) { asked.push_back(std::move(what)); }
  void wait(std::string what, Outcome done) {
    note(std::move(what));
    waiting = std::move(done);
  }
};

class ScriptRunnerTest : public testing::Test {
 protected:
  void run(const std::string& text) {
    runner = ScriptRunner::create(std::get<std::vector<Command>>(parseScript(text)), host);
    runner->run([this](ScriptRunner::Ending how) {
      ++endings;
      ending = how;
    });
    time.settle();
  }
  void finishWait(const std::string& error = {}) {
    std::exchange(host.waiting, nullptr)(error);
    time.settle();
  }

  ManualTime time;
  RecordingHost host;
  std::shared_ptr<ScriptRunner> runner;
  int endings = 0;
  ScriptRunner::Ending ending;
};

TEST_F(ScriptRunnerTest, RunsTheCommandsInOrder) {
  run("next; prev; goto 3; play; pause; rate 2; volume 0.5; state; idle on; idle off; fast on; "
      "fast off; bounds 4 2; reset");
  EXPECT_THAT(host.asked,
              ElementsAre("by 1", "by -1", "to 2", "rate 1.0", "rate 0.0", "rate 2.0", "volume 0.5",
                          "state", "idle", "busy", "fast", "native", "bounds 4 2", "reset"));
  EXPECT_EQ(endings, 1);
  EXPECT_FALSE(ending.quit);
  EXPECT_FALSE(ending.failed);
}

TEST_F(ScriptRunnerTest, DoesWhatAPersonAtTheWindowWould) {
  using Type = InputEvent::Type;
  run("press M; press Shift+/; press \"Ctrl+wheel up\"; press \"wheel down\"; "
      "pointer down 10 20; pointer move 10 -5.5; pointer up 1 2; window hide; window show; "
      "drop \"a b.mp4\"; status");
  ASSERT_EQ(host.inputs.size(), 10u);
  EXPECT_EQ(host.inputs[0].type, Type::KeyDown);
  EXPECT_EQ(host.inputs[0].key, "M");
  EXPECT_EQ(host.inputs[1].key, "/");
  EXPECT_TRUE(host.inputs[1].withShift);
  EXPECT_EQ(host.inputs[2].type, Type::Wheel);
  EXPECT_EQ(host.inputs[2].wheelY, -1);
  EXPECT_TRUE(host.inputs[2].withControl);
  EXPECT_EQ(host.inputs[3].wheelY, 1);
  EXPECT_FALSE(host.inputs[3].withControl);
  EXPECT_EQ(host.inputs[4].type, Type::PointerDown);
  EXPECT_EQ(host.inputs[5].position, (CGPoint{10, -5.5}));
  EXPECT_EQ(host.inputs[6].type, Type::PointerUp);
  EXPECT_EQ(host.inputs[7].type, Type::Hide);
  EXPECT_EQ(host.inputs[8].type, Type::Show);
  EXPECT_EQ(host.inputs[9].type, Type::Drop);
  EXPECT_EQ(host.inputs[9].path, "a b.mp4");
  EXPECT_EQ(host.asked.back(), "status");
}

TEST_F(ScriptRunnerTest, QuitEndsTheScriptThereAndSaysSo) {
  run("next; quit; prev");
  EXPECT_THAT(host.asked, ElementsAre("by 1"));
  EXPECT_EQ(endings, 1);
  EXPECT_TRUE(ending.quit);
}

TEST_F(ScriptRunnerTest, AnEmptyScriptEndsAtOnce) {
  run("");
  EXPECT_EQ(endings, 1);
}

TEST_F(ScriptRunnerTest, WaitWaitsThatLongAndNoLonger) {
  run("wait 0.5; next");
  time.advance(499 * kNanosecondsPerMillisecond);
  EXPECT_TRUE(host.asked.empty());
  time.advance(kNanosecondsPerMillisecond);
  EXPECT_THAT(host.asked, ElementsAre("by 1"));
}

TEST_F(ScriptRunnerTest, WaitFrameSeekAndShotWaitForTheirEnd) {
  run("wait-frame; seek 1.5; shot a.png; next");
  EXPECT_THAT(host.asked, ElementsAre("frame"));
  finishWait();
  EXPECT_THAT(host.asked, ElementsAre("frame", "seek 1.50"));
  finishWait();
  EXPECT_EQ(host.asked.size(), 3u);
  finishWait();
  EXPECT_THAT(host.asked, ElementsAre("frame", "seek 1.50", "shot a.png", "by 1"));
  EXPECT_FALSE(ending.failed);
}

TEST_F(ScriptRunnerTest, ACommandThatGoesWrongIsReportedWithItsPlaceAndTheNextOneRuns) {
  testing::internal::CaptureStderr();
  run("next;\n  shot /a.png; prev");
  finishWait("no room");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "zaffo-feed: script, line 2, column 3: no room\n");
  EXPECT_THAT(host.asked, ElementsAre("by 1", "shot /a.png", "by -1"));
  EXPECT_EQ(endings, 1);
  EXPECT_TRUE(ending.failed);
}

TEST_F(ScriptRunnerTest, AFrameThatNeverComesIsGivenUp) {
  testing::internal::CaptureStderr();
  run("wait-frame; next");
  time.advance(ScriptRunner::kPatience - 1);
  EXPECT_EQ(endings, 0);
  time.advance(1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("nothing has happened for 10 seconds"));
  EXPECT_THAT(host.asked, ElementsAre("frame", "by 1"));
  EXPECT_TRUE(ending.failed);
}

TEST_F(ScriptRunnerTest, AnEndThatComesLateIsNotTakenForTheNextCommands) {
  testing::internal::CaptureStderr();
  run("wait-frame; shot a.png; next");
  const auto late = host.waiting;
  time.advance(ScriptRunner::kPatience);
  late({});
  time.settle();
  EXPECT_THAT(host.asked, ElementsAre("frame", "shot a.png"));
  finishWait();
  EXPECT_EQ(host.asked.back(), "by 1");
  testing::internal::GetCapturedStderr();
}

TEST_F(ScriptRunnerTest, NothingRunsAfterTheRunnerIsGone) {
  run("wait 1; next");
  runner = nullptr;
  time.advance(2 * kNanosecondsPerSecond);
  EXPECT_TRUE(host.asked.empty());
  EXPECT_EQ(endings, 0);
}

TEST(Tour, PlaysEachPageForASecondAndTakesAPictureOfTheFirst) {
  Options options;
  options.headless = true;
  options.shotFile = "/folder/x.png";
  const Tour tour(options, 2);
  EXPECT_TRUE(tour.isWanted());
  std::vector<Word> words;
  for (const auto& command : tour.commands()) words.push_back(command.word);
  EXPECT_THAT(words, ElementsAre(Word::WaitFrame, Word::Wait, Word::Shot, Word::Next,
                                 Word::WaitFrame, Word::Wait));
  EXPECT_EQ(tour.commands()[1].number, 1);
  EXPECT_EQ(tour.commands()[2].file, "/folder/x.png");
  EXPECT_THAT(tour.lastLine(), testing::EndsWith(" /folder/x.png"));
}

TEST(Tour, EndsAfterTwelvePages) {
  Options options;
  options.headless = true;
  const auto commands = Tour(options, 500).commands();
  EXPECT_EQ(std::count_if(commands.begin(), commands.end(),
                          [](const Command& command) { return command.word == Word::Next; }),
            11);
}

TEST(Tour, IsForHeadlessRunsWithoutAScriptOnly) {
  Options options;
  EXPECT_FALSE(Tour(options, 1).isWanted());
  options.headless = true;
  options.commands = "next";
  EXPECT_FALSE(Tour(options, 1).isWanted());
}

}  // namespace
}  // namespace zaffo::feed
