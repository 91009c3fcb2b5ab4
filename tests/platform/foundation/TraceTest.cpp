// SPDX-License-Identifier: Apache-2.0
#include "platform/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zaffo {
namespace {

class TraceTest : public testing::Test {
 protected:
  TraceTest() {
    setTraceSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  ~TraceTest() override { setTraceSink(nullptr); }

  std::vector<std::string> lines_;
};

TEST_F(TraceTest, ASinkTakesTheLinesAndStandardOutputNone) {
  testing::internal::CaptureStdout();
  trace("one");
  trace("");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_THAT(lines_, testing::ElementsAre("one", ""));
}

TEST_F(TraceTest, WithoutASinkTheyGoToStandardOutput) {
  setTraceSink(nullptr);
  testing::internal::CaptureStdout();
  trace("one");
  trace("two");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "one\ntwo\n");
  EXPECT_TRUE(lines_.empty());
}

TEST_F(TraceTest, AnotherSinkTakesThePlaceOfTheFirst) {
  int taken = 0;
  setTraceSink([&taken](std::string_view) { ++taken; });
  trace("one");
  EXPECT_EQ(taken, 1);
  EXPECT_TRUE(lines_.empty());
}

}  // namespace
}  // namespace zaffo
