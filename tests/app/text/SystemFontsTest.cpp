// SPDX-License-Identifier: Apache-2.0
#include "text/SystemFonts.h"

#include <gtest/gtest.h>

#include <memory>

#include "doubles/BusyPool.h"
#include "doubles/MainLoopUntil.h"

namespace zaffo::feed {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;

TEST(SystemFonts, AreAskedForWhereNothingElseWaitsForTheirFiles) {
  SystemFonts::shared().forget();
  const BusyPool others;
  const auto isAnswered = std::make_shared<bool>();
  SystemFonts::shared().ask({{U'a', false}}, [isAnswered] { *isAnswered = true; });
  EXPECT_FALSE(*isAnswered) << "a block of the main queue tells of it";
  ASSERT_TRUE(runMainLoopUntil([&] { return *isAnswered; }, kTenSeconds));
  EXPECT_NE(SystemFonts::shared().answerTo({U'a', false}), nullptr);
}

}  // namespace
}  // namespace zaffo::feed
