// SPDX-License-Identifier: Apache-2.0
#include "platform/network/DiskCache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>

#include "doubles/FaultServer.h"
#include "doubles/ManualTime.h"
#include "doubles/StalledStorage.h"
#include "feed/TemporaryFolder.h"
#include "platform/network/NetworkLoop.h"
#include "platform/network/RemoteBytes.h"
#include "platform/network/SharedResources.h"

namespace zaffo::network {
namespace {

constexpr int64_t kKiB = 1024;
/// Of a test that counts requests: a machine which is busy is no disk that stalls.
constexpr std::chrono::minutes kNoEndOfPatience{1};

/// A program from its start to its end, as far as the cache can tell.
class Start {
 public:
  explicit Start(const std::string& folder, int64_t bytes = DiskCache::kUsualBytes,
                 int64_t memory = 640 * kKiB, std::chrono::milliseconds patience = kNoEndOfPatience)
      : budget_(4 * memory, memory), resources(HttpClient::shared(), budget_) {
    auto ready = std::make_shared<std::promise<NSErrorPtr>>();
    auto future = ready->get_future();
    cache = DiskCache::in(folder, bytes, patience);
    cache->enter([ready](const NSErrorPtr& why) { ready->set_value(why); });
    error = future.get();
    resources.setCache(cache);
  }
  ~Start() {
    const std::weak_ptr<DiskCache> left = std::exchange(cache, nullptr);
    resources.setCache(nullptr);
    resources.forgetKept();
    // The network's thread lets go of it last, and the folder is the next one's only then.
    while (!left.expired()) {
      std::promise<void> turn;
      NetworkLoop::shared().post([&turn] { turn.set_value(); });
      turn.get_future().wait();
      dispatch_wait_until_idle();
    }
  }

  std::shared_ptr<HttpResource> at(const std::string& address) {
    return resources.at(NSURL::URLWithString(address));
  }
  std::string readAll(const std::string& address) { return bringAll(*at(address)); }

  /// Waits until the network's thread and the cache have done what they were asked; false when the
  /// cache does not answer.
  bool takeTurn() {
    std::promise<void> turn;
    NetworkLoop::shared().post([&turn] { turn.set_value(); });
    turn.get_future().wait();
    const auto found = std::make_shared<std::promise<void>>();
    auto future = found->get_future();
    cache->find("no clip", [found](const auto&) { found->set_value(); });
    return future.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  }

 private:
  ByteBudget budget_;

 public:
  SharedResources resources;
  std::shared_ptr<DiskCache> cache;
  NSErrorPtr error;
};

class DiskCacheTest : public testing::Test {
 protected:
  [[nodiscard]] std::string clip() const { return server.address("/clip"); }
  std::string readAllAnew() { return Start(folder.path()).readAll(clip()); }
  /// The cache's files.
  [[nodiscard]] std::vector<std::filesystem::path> files() const {
    std::vector<std::filesystem::path> found;
    for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
      if (file.path().extension() == ".clip") found.push_back(file.path());
    }
    return found;
  }
  void damage(int64_t place) const {
    ASSERT_EQ(files().size(), 1U);
    std::fstream file(files()[0], std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(place);
    file.put('x');
  }

  const feed::TemporaryFolder folder;
  const std::string body = patternedBytes(300'000);
  FaultServer server;
};

TEST_F(DiskCacheTest, ASecondStartFetchesNothing) {
  server.on("/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(DiskCacheTest, ASecondStartFetchesTheRest) {
  FaultReply stalling = goodReply(body);
  stalling.stallsAfter = 150'000;
  server.on("/clip", {stalling, goodReply(body)});
  {
    Start first(folder.path());
    const auto resource = first.at(clip());
    EXPECT_TRUE(areBytes(bring(*resource, 0, 150'000), body.substr(0, 150'000)));
  }
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[1].field("Range"), "bytes=150000-");
  EXPECT_EQ(server.requests()[1].field("If-Range"), "\"one\"");
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(DiskCacheTest, WhatDoesNotFitIntoMemoryIsNotFetchedTwice) {
  server.on("/clip", {goodReply(body)});
  Start start(folder.path(), DiskCache::kUsualBytes, 128 * kKiB);
  const auto resource = start.at(clip());
  for (int round = 0; round < 3; ++round) {
    std::string read;
    while (read.size() < body.size()) {
      read += bring(*resource, static_cast<int64_t>(read.size()), 20'000);
    }
    EXPECT_TRUE(areBytes(read, body));
    dispatch_wait_until_idle();  // what came last is on disk
  }
  EXPECT_EQ(server.requests().size(), 1U);
}

/// As when hundreds of clips share the memory: what is read ahead has no room beside what is read.
TEST_F(DiskCacheTest, WhatHasNoRoomInMemoryIsNotReadOverAndOver) {
  server.on("/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  const auto file = files()[0].string();
  Start start(folder.path(), DiskCache::kUsualBytes, 64 * kKiB);
  const auto resource = start.at(clip());
  await(*resource, 40'000, 20'000);
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(start.takeTurn());
  {
    const StalledStorage stall(file);
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(start.takeTurn()) << "the disk is still read";
  }
  std::promise<void> met;
  const auto want = resource->want(140'000, 20'000, [&met] { met.set_value(); });
  met.get_future().wait();
  EXPECT_TRUE(areBytes(held(*resource, 140'000, 20'000), body.substr(140'000, 20'000)));
  EXPECT_EQ(server.requests().size(), 1U);
}

/// Reading ahead goes on before a reader runs dry, though no download is under way.
TEST_F(DiskCacheTest, WhatFollowsTheDisksBytesIsAskedForAhead) {
  FaultReply stalling = goodReply(body);
  stalling.stallsAfter = 200'000;
  server.on("/clip", {stalling, goodReply(body)});
  EXPECT_EQ(bring(*Start(folder.path()).at(clip()), 0, 200'000).size(), 200'000U);
  Start start(folder.path(), DiskCache::kUsualBytes, 256 * kKiB);
  const auto resource = start.at(clip());
  std::string read = bring(*resource, 0, 1'000);
  for (int i = 0; i < 40; ++i) {
    ASSERT_TRUE(start.takeTurn());
    read += held(*resource, static_cast<int64_t>(read.size()), 5'000);
  }
  EXPECT_GE(read.size(), 200'000U);
  EXPECT_TRUE(areBytes(read, body.substr(0, read.size())));
  EXPECT_TRUE(server.waitForRequests(2));
}

TEST_F(DiskCacheTest, OldBytesAreGivenOnlyWhenTheServerSaysSo) {
  FaultReply reply = goodReply(body);
  reply.fields = {{"Cache-Control", "no-cache"}};
  server.on("/clip", {reply});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  const int64_t sent = bytesSentOnce(server, 300'000);
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[1].field("If-None-Match"), "\"one\"");
  EXPECT_EQ(server.bytesSent(), sent);
}

TEST_F(DiskCacheTest, WhereTheServerLedForGoodIsKnown) {
  FaultReply moved;
  moved.status = 301;
  moved.fields = {{"Location", "/elsewhere/clip"}};
  server.on("/clip", {moved});
  server.on("/elsewhere/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  Start again(folder.path());
  const auto resource = again.at(clip());
  EXPECT_TRUE(areBytes(bringAll(*resource), body));
  EXPECT_EQ(resource->location()->absoluteString(), server.address("/elsewhere/clip"));
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(DiskCacheTest, AClipThatIsAnotherByNowTakesThePlace) {
  FaultReply first = goodReply(body);
  first.fields = {{"Cache-Control", "no-cache"}};
  const FaultReply second = goodReply(std::string(200'000, 'o'), "\"two\"");
  server.on("/clip", {first, second});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  EXPECT_TRUE(areBytes(readAllAnew(), second.body));
  EXPECT_TRUE(areBytes(readAllAnew(), second.body));
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(DiskCacheTest, KeepsNothingThatTheServerForbidsToKeep) {
  FaultReply reply = goodReply(body);
  reply.fields = {{"Cache-Control", "no-store"}};
  server.on("/clip", {reply});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  for (const auto& file : files()) EXPECT_EQ(std::filesystem::file_size(file), 0U);
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  EXPECT_EQ(server.requests().size(), 2U);
  Start(folder.path());
  EXPECT_TRUE(files().empty()) << "an empty file is no use";
}

TEST_F(DiskCacheTest, KeepsNothingThatIsGone) {
  FaultReply first = goodReply(body);
  first.fields = {{"Cache-Control", "no-cache"}};
  FaultReply gone;
  gone.status = 404;
  server.on("/clip", {first, gone, gone, goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  EXPECT_EQ(readAllAnew(), "");
  for (const auto& file : files()) EXPECT_EQ(std::filesystem::file_size(file), 0U);
}

/// Wherever it is damaged, its bytes are fetched anew, once.
TEST_F(DiskCacheTest, ADamagedFileIsFetchedAnew) {
  server.on("/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  const auto size = static_cast<int64_t>(std::filesystem::file_size(files()[0]));
  for (const int64_t place : {int64_t{0}, int64_t{40}, int64_t{5'000}, size / 2, size - 1}) {
    damage(place);
    const std::size_t requests = server.requests().size();
    EXPECT_TRUE(areBytes(readAllAnew(), body)) << place;
    EXPECT_EQ(server.requests().size(), requests + 1) << place;
    EXPECT_TRUE(areBytes(readAllAnew(), body)) << place;
    EXPECT_EQ(server.requests().size(), requests + 1) << place;
  }
}

TEST_F(DiskCacheTest, TheClipThatWasUsedLeastRecentlyGoes) {
  for (const std::string again : {"/a", "/b"}) {
    Start start(folder.file(again.substr(1)), 700 * kKiB);
    const auto isFetched = [&](const std::string& path) {
      const std::size_t requests = server.requests().size();
      EXPECT_TRUE(areBytes(start.readAll(server.address(path)), body));
      start.resources.forgetKept();
      dispatch_wait_until_idle();
      EXPECT_LE(start.cache->bytes(), 700 * kKiB);
      return server.requests().size() > requests;
    };
    for (const char* path : {"/a", "/b", "/c"}) server.on(path, {goodReply(body)});
    EXPECT_TRUE(isFetched("/a"));
    EXPECT_TRUE(isFetched("/b"));
    EXPECT_FALSE(isFetched(again));
    EXPECT_TRUE(isFetched("/c")) << "for which one goes";
    EXPECT_FALSE(isFetched(again));
    EXPECT_TRUE(isFetched(again == "/a" ? "/b" : "/a"));
  }
}

TEST_F(DiskCacheTest, AClipThatIsInUseStays) {
  Start start(folder.path(), 700 * kKiB);
  for (const char* path : {"/a", "/b", "/c"}) server.on(path, {goodReply(body)});
  const auto inUse = start.at(server.address("/a"));
  EXPECT_TRUE(areBytes(bringAll(*inUse), body));
  for (const char* path : {"/b", "/c"}) {
    EXPECT_TRUE(areBytes(start.readAll(server.address(path)), body));
    start.resources.forgetKept();
    dispatch_wait_until_idle();
  }
  ASSERT_EQ(files().size(), 2U);
  std::size_t whole = 0;
  for (const auto& file : files()) whole += std::filesystem::file_size(file) > 300'000;
  EXPECT_EQ(whole, 2U);
  EXPECT_GT(start.cache->bytes(), 600'000);
}

TEST_F(DiskCacheTest, AStartKnowsWhatEarlierOnesUsedLast) {
  std::vector<std::filesystem::path> inOrder;
  for (const char* path : {"/a", "/b", "/c", "/d"}) {
    server.on(path, {goodReply(body)});
    EXPECT_TRUE(areBytes(Start(folder.path()).readAll(server.address(path)), body));
    for (const auto& file : files()) {
      if (std::ranges::find(inOrder, file) == inOrder.end()) inOrder.push_back(file);
    }
  }
  ASSERT_EQ(inOrder.size(), 4U);
  const auto now = std::filesystem::file_time_type::clock::now();
  // The clip that came first was used last.
  for (int i = 0; i < 4; ++i) {
    std::filesystem::last_write_time(inOrder[static_cast<std::size_t>(i)],
                                     now - std::chrono::hours(i));
  }
  const Start less(folder.path(), 700 * kKiB);
  EXPECT_TRUE(std::filesystem::exists(inOrder[0]));
  EXPECT_TRUE(std::filesystem::exists(inOrder[1]));
  EXPECT_FALSE(std::filesystem::exists(inOrder[2]));
  EXPECT_FALSE(std::filesystem::exists(inOrder[3]));
}

TEST_F(DiskCacheTest, AStartWithLessRoomLetsGoOfWhatIsTooMuch) {
  server.on("/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  Start less(folder.path(), 100 * kKiB);
  EXPECT_EQ(less.cache->bytes(), 0);
  EXPECT_TRUE(files().empty());
}

TEST_F(DiskCacheTest, ALowerBoundHoldsAtOnce) {
  server.on("/clip", {goodReply(body)});
  Start start(folder.path());
  EXPECT_TRUE(areBytes(start.readAll(clip()), body));
  start.resources.forgetKept();
  dispatch_wait_until_idle();
  EXPECT_GT(start.cache->bytes(), 300'000);
  start.cache->setBound(100 * kKiB);
  dispatch_wait_until_idle();
  EXPECT_EQ(start.cache->bytes(), 0);
}

TEST_F(DiskCacheTest, FilesOfOthersStay) {
  std::ofstream(folder.file("mine.clip")) << "mine";
  std::ofstream(folder.file("note.txt")) << "mine";
  Start(folder.path(), 1);
  EXPECT_TRUE(std::filesystem::exists(folder.file("mine.clip")));
  EXPECT_TRUE(std::filesystem::exists(folder.file("note.txt")));
}

TEST_F(DiskCacheTest, ASecondProgramDoesWithout) {
  server.on("/clip", {goodReply(body)});
  const Start first(folder.path());
  EXPECT_EQ(first.error, nullptr);
  Start second(folder.path());
  ASSERT_NE(second.error, nullptr);
  EXPECT_EQ(second.error->localizedDescription(),
            "The folder \"" + folder.path() + "\" is in use by another program.");
  EXPECT_TRUE(areBytes(second.readAll(clip()), body));
  EXPECT_TRUE(files().empty());
}

TEST_F(DiskCacheTest, AFolderThatIsLetGoOfSoonIsWaitedFor) {
  ManualTime time;
  const int other = ::open(folder.file("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(other, LOCK_EX), 0);
  const auto cache = DiskCache::in(folder.path());
  int answers = 0;
  NSErrorPtr error;
  for (int i = 0; i < 2; ++i) {
    cache->enter([&](const NSErrorPtr& why) {
      ++answers;
      error = why;
    });
  }
  dispatch_wait_until_idle();
  time.advance(200 * kNanosecondsPerMillisecond);
  dispatch_wait_until_idle();
  EXPECT_EQ(answers, 0);
  ::close(other);
  time.advance(50 * kNanosecondsPerMillisecond);
  dispatch_wait_until_idle();
  EXPECT_EQ(answers, 2);
  EXPECT_EQ(error, nullptr);
}

TEST_F(DiskCacheTest, AFolderThatCannotBeIsDoneWithout) {
  server.on("/clip", {goodReply(body)});
  std::ofstream(folder.file("file")) << "no folder";
  Start start(folder.file("file"));
  ASSERT_NE(start.error, nullptr);
  EXPECT_EQ(start.error->localizedDescription(),
            "The folder \"" + folder.file("file") + "\" cannot be written to.");
  EXPECT_TRUE(areBytes(start.readAll(clip()), body));
}

/// The system's limit on the length of a file, which stands for a disk that takes no more.
TEST_F(DiskCacheTest, ADiskThatTakesNoMoreOnlyLeavesBytesOut) {
  server.on("/clip", {goodReply(body)});
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit less = before;
  less.rlim_cur = 150'000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &less), 0);
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  (void)std::signal(SIGXFSZ, handler);
  ASSERT_EQ(files().size(), 1U);
  EXPECT_LE(std::filesystem::file_size(files()[0]), 150'000U);
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[1].field("Range"), "bytes=131072-");
}

TEST_F(DiskCacheTest, ADiskThatStallsIsDoneWithout) {
  server.on("/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  ASSERT_EQ(files().size(), 1U);
  StalledStorage stall(files()[0].string());
  Start start(folder.path(), DiskCache::kUsualBytes, 640 * kKiB, DiskCache::kUsualPatience);
  EXPECT_TRUE(areBytes(start.readAll(clip()), body));
  EXPECT_EQ(server.requests().size(), 2U);
  stall.release();
}

TEST_F(DiskCacheTest, WhatOnePersonMayReadIsNotGivenToAnother) {
  server.on("/clip", {goodReply(body)});
  const auto readAs = [&](const std::string& token) {
    Start start(folder.path());
    start.resources.setFields(NSURL::URLWithString(server.address("/")),
                              {{"Authorization", token}});
    EXPECT_TRUE(areBytes(start.readAll(clip()), body));
  };
  readAs("one");
  readAs("two");
  readAs("one");
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[0].field("Authorization"), "one");
  EXPECT_EQ(server.requests()[1].field("Authorization"), "two");
  for (const auto& file : files()) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(stream)), {});
    EXPECT_EQ(text.find("Authorization"), std::string::npos);
  }
}

TEST_F(DiskCacheTest, ClearsWhatIsNotInUse) {
  server.on("/clip", {goodReply(body)});
  EXPECT_TRUE(areBytes(readAllAnew(), body));
  Start start(folder.path());
  EXPECT_GT(start.cache->bytes(), 300'000);
  start.cache->clear();
  dispatch_wait_until_idle();
  EXPECT_EQ(start.cache->bytes(), 0);
  EXPECT_TRUE(files().empty());
}

}  // namespace
}  // namespace zaffo::network
