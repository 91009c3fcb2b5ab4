// SPDX-License-Identifier: Apache-2.0
#include "feed/Bindings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

namespace zaffo::feed {
namespace {

using testing::HasSubstr;

std::string textOf(const std::string& file) {
  std::ifstream stream(std::string(ZAFFO_SOURCE_FOLDER) + "/" + file);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

TEST(Bindings, EachTriggerAsksForOneThingAndEachActionHasOneRow) {
  std::set<std::string_view> triggers;
  std::set<Action> actions;
  for (const Binding& binding : bindings()) {
    EXPECT_FALSE(binding.triggers.empty()) << binding.text;
    EXPECT_FALSE(binding.text.empty());
    EXPECT_TRUE(actions.insert(binding.action).second) << binding.text;
    for (const auto trigger : binding.triggers) {
      EXPECT_TRUE(triggers.insert(trigger).second) << trigger;
      EXPECT_EQ(bindingOf(trigger), &binding);
    }
  }
  EXPECT_EQ(actions.size(), static_cast<std::size_t>(Action::Quit) + 1);
}

TEST(Bindings, WhatIsNotBoundHasNone) {
  EXPECT_EQ(bindingOf("X"), nullptr);
  EXPECT_EQ(bindingOf(""), nullptr);
}

TEST(Bindings, TheManualSaysTheSame) {
  const std::string manual = textOf("app/zaffo-feed.1");
  for (const Binding& binding : bindings()) {
    EXPECT_THAT(manual, HasSubstr(".It " + binding.triggerList() + "\n" +
                                  std::string(binding.text) + "\n"));
  }
}

TEST(Bindings, TheReadmeSaysTheSame) {
  const std::string readme = textOf("README.md");
  for (const Binding& binding : bindings()) {
    EXPECT_THAT(readme, HasSubstr("| " + binding.triggerList() + " | " + std::string(binding.text) +
                                  " |\n"));
  }
}

}  // namespace
}  // namespace zaffo::feed
