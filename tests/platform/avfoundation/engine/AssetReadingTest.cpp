// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetReading.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/foundation/AVError.h"
#include "platform/foundation/MakeError.h"

namespace zaffo {
namespace {

using Status = AVAssetReaderStatus;

NSErrorPtr broken() {
  return makeError(AVErrorDecodeFailed, "Broken.");
}

TEST(AssetReading, IsCompletedOnceEveryOutputHasEnded) {
  AssetReading reading;
  EXPECT_EQ(reading.status(), Status::Unknown);
  ASSERT_TRUE(reading.begin(2));
  EXPECT_EQ(reading.status(), Status::Reading);
  reading.endOutput();
  EXPECT_EQ(reading.status(), Status::Reading);
  reading.endOutput();
  EXPECT_EQ(reading.status(), Status::Completed);
}

TEST(AssetReading, BeginsOnce) {
  AssetReading reading;
  ASSERT_TRUE(reading.begin(1));
  EXPECT_FALSE(reading.begin(1));
  reading.endOutput();
  EXPECT_FALSE(reading.begin(1));
  EXPECT_EQ(reading.status(), Status::Completed);
}

TEST(AssetReading, AFailureHasAnErrorAndIsTheEndOfIt) {
  AssetReading reading;
  ASSERT_TRUE(reading.begin(1));
  EXPECT_FALSE(reading.error());
  const NSErrorPtr error = broken();
  reading.fail(error);
  EXPECT_EQ(reading.status(), Status::Failed);
  reading.fail(broken());
  EXPECT_EQ(reading.error(), error) << "the first one stays";
  reading.endOutput();
  reading.cancel();
  EXPECT_EQ(reading.status(), Status::Failed);
}

TEST(AssetReading, ACancelledOneStaysCancelled) {
  AssetReading reading;
  reading.cancel();
  EXPECT_EQ(reading.status(), Status::Cancelled);
  EXPECT_FALSE(reading.begin(1)) << "also before it began";
  reading.fail(broken());
  EXPECT_EQ(reading.status(), Status::Cancelled);
  EXPECT_FALSE(reading.error());
}

TEST(AssetReading, ACompletedOneIsNeitherCancelledNorFailed) {
  AssetReading reading;
  ASSERT_TRUE(reading.begin(1));
  reading.endOutput();
  reading.cancel();
  reading.fail(broken());
  EXPECT_EQ(reading.status(), Status::Completed);
  EXPECT_FALSE(reading.error());
}

TEST(AssetReading, OutputsMayEndOnAnyThread) {
  constexpr std::size_t kOutputs = 4;
  for (int round = 0; round < 50; ++round) {
    AssetReading reading;
    ASSERT_TRUE(reading.begin(kOutputs));
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kOutputs; ++i) {
      threads.emplace_back([&reading] { reading.endOutput(); });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(reading.status(), Status::Completed);
  }
}

}  // namespace
}  // namespace zaffo
