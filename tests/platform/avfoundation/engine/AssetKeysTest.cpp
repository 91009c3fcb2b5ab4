// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetKeys.h"

#include <gtest/gtest.h>

#include "doubles/ScriptedAsset.h"

namespace zaffo {
namespace {

/// An asset whose keys end as the test wants them to when they are asked for.
class AssetKeysTest : public testing::Test {
 protected:
  AssetKeysTest() { asset_.finishesAtOnce = true; }

  ScriptedAsset asset_;
};

TEST_F(AssetKeysTest, AsksForNothingThatIsLoaded) {
  EXPECT_FALSE(loadKeysAndWait(asset_, {"tracks", "duration"}));
  EXPECT_TRUE(asset_.requestedKeys.empty());
}

TEST_F(AssetKeysTest, LoadsAllKeysWhenOneIsMissing) {
  asset_.statuses["duration"] = AVKeyValueStatus::Unknown;
  static_cast<void>(loadKeysAndWait(asset_, {"tracks", "duration"}));
  ASSERT_EQ(asset_.requestedKeys.size(), 1u);
  EXPECT_EQ(asset_.requestedKeys.front(), (std::vector<std::string>{"tracks", "duration"}));
}

TEST_F(AssetKeysTest, AKeyThatIsNotLoadedAfterwardsIsAnError) {
  for (const auto status : {AVKeyValueStatus::Failed, AVKeyValueStatus::Cancelled}) {
    asset_.statuses["tracks"] = status;
    const NSErrorPtr error = loadKeysAndWait(asset_, {"tracks"});
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->localizedDescription().empty());
  }
}

}  // namespace
}  // namespace zaffo
