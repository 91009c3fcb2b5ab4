// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/CommandLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

namespace zaffo::media {
namespace {

TEST(CommandLog, ASeekSupersedesWhatIsUnderWayUntilItBeginsItself) {
  CommandLog log;
  EXPECT_FALSE(log.isSuperseded());
  const auto first = log.giveSeek();
  EXPECT_TRUE(log.isSuperseded());
  log.begin(first);
  EXPECT_FALSE(log.isSuperseded());
  const auto second = log.giveSeek();
  EXPECT_TRUE(log.isSuperseded());
  log.begin(second);
  EXPECT_FALSE(log.isSuperseded());
}

TEST(CommandLog, ARateSupersedesNothing) {
  CommandLog log;
  log.begin(log.giveSeek());
  const auto rate = log.giveRate();
  EXPECT_FALSE(log.isSuperseded());
  log.begin(rate);
  EXPECT_FALSE(log.isSuperseded());
}

TEST(CommandLog, ASeekThatWaitsBehindARateSupersedesWhatTheRateBegan) {
  CommandLog log;
  const auto rate = log.giveRate();
  const auto seek = log.giveSeek();
  log.begin(rate);
  EXPECT_TRUE(log.isSuperseded());
  log.begin(seek);
  EXPECT_FALSE(log.isSuperseded());
}

TEST(CommandLog, AnOlderCommandThatBeginsLaterSupersedesNothing) {
  CommandLog log;
  const auto rate = log.giveRate();
  const auto seek = log.giveSeek();
  log.begin(seek);
  log.begin(rate);
  EXPECT_FALSE(log.isSuperseded());
  EXPECT_EQ(log.begun(), seek);
}

TEST(CommandLog, TellsWhetherACommandIsTheLatest) {
  CommandLog log;
  EXPECT_TRUE(log.isLatest(log.begun())) << "none was given";
  const auto seek = log.giveSeek();
  EXPECT_FALSE(log.isLatest(log.begun()));
  log.begin(seek);
  EXPECT_TRUE(log.isLatest(log.begun()));
  static_cast<void>(log.giveRate());
  EXPECT_FALSE(log.isLatest(log.begun()));
}

TEST(CommandLog, NothingIsOfUseOnceItIsClosed) {
  CommandLog log;
  log.begin(log.giveSeek());
  EXPECT_FALSE(log.isClosed());
  log.close();
  EXPECT_TRUE(log.isClosed());
  EXPECT_TRUE(log.isSuperseded());
  log.begin(log.giveSeek());
  EXPECT_TRUE(log.isSuperseded());
}

TEST(CommandLog, CommandsFromSeveralThreadsHaveNumbersOfTheirOwn) {
  constexpr int kEach = 500;
  CommandLog log;
  std::vector<CommandLog::Number> numbers[2];
  std::vector<std::thread> threads;
  for (auto& own : numbers) {
    threads.emplace_back([&log, &own] {
      for (int i = 0; i < kEach; ++i) own.push_back(i % 2 == 0 ? log.giveSeek() : log.giveRate());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<CommandLog::Number> all = numbers[0];
  all.insert(all.end(), numbers[1].begin(), numbers[1].end());
  std::ranges::sort(all);
  EXPECT_EQ(std::ranges::adjacent_find(all), all.end());
  EXPECT_TRUE(log.isLatest(all.back()));
  log.begin(all.back());
  EXPECT_FALSE(log.isSuperseded());
}

}  // namespace
}  // namespace zaffo::media
