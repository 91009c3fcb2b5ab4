// SPDX-License-Identifier: Apache-2.0
#include "figures/Statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <thread>

namespace zaffo::feed {
namespace {

constexpr int64_t kMillisecond = 1'000'000;

nlohmann::json written(const Statistics& statistics) {
  return nlohmann::json::parse(statistics.json());
}

TEST(Statistics, WritesWhatASwipeCost) {
  Statistics statistics;
  const auto swipe = statistics.beginSwipe("a.mp4", 1, 1000 * kMillisecond);
  swipe->warm = true;
  swipe->completed = 1002 * kMillisecond;
  swipe->firstFrame = 1010 * kMillisecond;
  swipe->framesShown = 30;
  swipe->framesDropped = 2;
  const auto json = written(statistics);
  ASSERT_EQ(json["swipes"].size(), 1u);
  const auto& object = json["swipes"][0];
  EXPECT_EQ(object["video"], "a.mp4");
  EXPECT_EQ(object["page"], 1);
  EXPECT_EQ(object["start"], "warm");
  EXPECT_EQ(object["request_to_completion_ms"], 2.0);
  EXPECT_EQ(object["request_to_first_frame_ms"], 10.0);
  EXPECT_EQ(object["frames_shown"], 30);
  EXPECT_EQ(object["frames_dropped"], 2);
  EXPECT_TRUE(object["error"].is_null());
}

TEST(Statistics, WritesNullForWhatDidNotHappen) {
  Statistics statistics;
  statistics.beginSwipe("a.mp4", 1, 0)->error = "no such file";
  const auto json = written(statistics);
  EXPECT_EQ(json["swipes"][0]["start"], "cold");
  EXPECT_TRUE(json["swipes"][0]["request_to_completion_ms"].is_null());
  EXPECT_TRUE(json["swipes"][0]["request_to_first_frame_ms"].is_null());
  EXPECT_EQ(json["swipes"][0]["error"], "no such file");
  EXPECT_TRUE(json["after_50_swipes"].is_null());
  EXPECT_TRUE(json["end"].is_null());
}

TEST(Statistics, ATurnCountsForTheSwipeUnderWayAndForTheRun) {
  Statistics statistics;
  statistics.noteTurn({9 * kMillisecond, 0, std::nullopt});
  statistics.beginSwipe("a", 1, 0);
  statistics.noteTurn({3 * kMillisecond, 0, std::nullopt});
  statistics.noteTurn({2 * kMillisecond, 0, std::nullopt});
  statistics.beginSwipe("b", 2, 0);
  statistics.noteTurn({1 * kMillisecond, 0, std::nullopt});
  const auto json = written(statistics);
  EXPECT_EQ(json["longest_main_thread_block_ms"], 9.0);
  EXPECT_EQ(json["swipes"][0]["longest_main_thread_block_ms"], 3.0);
  EXPECT_EQ(json["swipes"][1]["longest_main_thread_block_ms"], 1.0);
}

TEST(Statistics, TellsWorkAndTheTwoKindsOfWaitingOfTurnsApart) {
  Statistics statistics;
  EXPECT_TRUE(written(statistics)["most_main_thread_queued_ms"].is_null()) << "not known";
  statistics.noteTurn({9 * kMillisecond, 1 * kMillisecond, 8 * kMillisecond});
  statistics.noteTurn({6 * kMillisecond, 2 * kMillisecond, 1 * kMillisecond});
  const auto json = written(statistics);
  EXPECT_EQ(json["most_main_thread_work_ms"], 2.0);
  EXPECT_EQ(json["most_main_thread_queued_ms"], 8.0);
  EXPECT_EQ(json["most_main_thread_asleep_ms"], 3.0);
}

TEST(Statistics, WritesTheFiguresOfTheProcess) {
  Statistics statistics;
  statistics.setWarmedUpFigures({5, 20, 1000, 900}, 3);
  statistics.setFinalFigures({6, 21, 2000, 1900}, 4);
  const auto json = written(statistics);
  EXPECT_EQ(json["after_50_swipes"]["players"], 3);
  EXPECT_EQ(json["after_50_swipes"]["private_bytes"], 900);
  EXPECT_EQ(json["end"]["players"], 4);
  EXPECT_EQ(json["end"]["threads"], 6);
  EXPECT_EQ(json["end"]["file_descriptors"], 21);
  EXPECT_EQ(json["end"]["resident_bytes"], 2000);
  EXPECT_EQ(json["end"]["private_bytes"], 1900);
}

TEST(Statistics, AFileNameThatIsNotTextDoesNotSpoilTheFile) {
  Statistics statistics;
  statistics.beginSwipe("\xff\xfe.mp4", 1, 0);
  EXPECT_NO_THROW(written(statistics));
}

TEST(Statistics, TheSummaryHasALineForEachSwipeAndTellsOfErrors) {
  Statistics statistics;
  statistics.beginSwipe("good.mp4", 1, 0)->completed = 5 * kMillisecond;
  statistics.beginSwipe("bad.mp4", 2, 0)->error = "no such file";
  statistics.setFinalFigures({6, 21, 50 << 20, 0}, 4);
  const std::string summary = statistics.summary();
  EXPECT_THAT(summary, testing::HasSubstr("5.00 ms"));
  EXPECT_THAT(summary, testing::HasSubstr("good.mp4\n"));
  EXPECT_THAT(summary, testing::HasSubstr("bad.mp4: no such file\n"));
  EXPECT_THAT(summary,
              testing::HasSubstr("4 players, 6 threads, 21 file descriptors, 50.0 MiB of memory"));
}

TEST(ProcessFigures, CountThreadsAndDescriptorsThatComeAndGo) {
  const auto before = ProcessFigures::read();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ProcessFigures during;
  std::thread([&during] { during = ProcessFigures::read(); }).join();
  EXPECT_GT(during.threads, before.threads);  // a sanitizer may have started one of its own
  EXPECT_EQ(during.fileDescriptors, before.fileDescriptors + 2);
  close(ends[0]);
  close(ends[1]);
  EXPECT_EQ(ProcessFigures::read().fileDescriptors, before.fileDescriptors);
}

TEST(ProcessFigures, SeeMemoryThatIsUsed) {
  const auto before = ProcessFigures::read();
  constexpr std::size_t kSize = 32 << 20;
  const std::vector<char> block(kSize, 1);
  const auto after = ProcessFigures::read();
  EXPECT_GE(after.privateBytes - before.privateBytes, static_cast<int64_t>(kSize) / 2);
  EXPECT_GE(after.residentBytes, after.privateBytes);
  EXPECT_EQ(block.back(), 1);
}

}  // namespace
}  // namespace zaffo::feed
