// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/ReadTask.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "doubles/ScriptedByteSource.h"

namespace zaffo::media {
namespace {

class ReadTaskTest : public testing::Test {
 protected:
  ReadTaskTest() {
    source->setWorthGoingOn(10);
    task.setReadyHandler([this] { ++readies; });
  }

  const std::shared_ptr<ScriptedByteSource> source =
      std::make_shared<ScriptedByteSource>(std::string(100, 'x'));
  ReadTask task{source};
  std::array<uint8_t, 60> bytes{};
  int64_t count = 0;
  int readies = 0;
};

TEST_F(ReadTaskTest, AReadGoesOnWithAsFewBytesAsAreWorthIt) {
  const auto work = [this] { count = task.read(20, bytes); };
  EXPECT_FALSE(task.run(work));
  source->bring(20, 9);
  EXPECT_EQ(readies, 0);
  source->bring(29, 3);
  EXPECT_EQ(readies, 1);
  EXPECT_TRUE(task.run(work));
  EXPECT_EQ(count, 12);
}

TEST_F(ReadTaskTest, AReadOfFewerBytesWaitsForThoseAlone) {
  const auto work = [this] { count = task.read(20, std::span(bytes).first(4)); };
  EXPECT_FALSE(task.run(work));
  source->bring(20, 4);
  EXPECT_EQ(readies, 1);
  EXPECT_TRUE(task.run(work));
  EXPECT_EQ(count, 4);
}

TEST_F(ReadTaskTest, AReadOfAllGoesOnOnce) {
  const auto work = [this] { count = task.readAll(20, bytes); };
  EXPECT_FALSE(task.run(work));
  source->bring(20, 40);
  EXPECT_EQ(readies, 0);
  source->bring(60, 40);
  EXPECT_EQ(readies, 1);
  EXPECT_TRUE(task.run(work));
  EXPECT_EQ(count, 60);
}

}  // namespace
}  // namespace zaffo::media
