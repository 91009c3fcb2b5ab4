// SPDX-License-Identifier: Apache-2.0
#include "platform/network/SharedResources.h"

#include <gtest/gtest.h>

#include "doubles/FaultServer.h"
#include "doubles/ManualTime.h"
#include "platform/network/RemoteBytes.h"

namespace zaffo::network {
namespace {

constexpr int64_t kKiB = 1024;

class SharedResourcesTest : public testing::Test {
 protected:
  std::shared_ptr<HttpResource> at(const std::string& path) {
    return resources.at(NSURL::URLWithString(server.address(path)));
  }
  [[nodiscard]] FaultReply good() const { return goodReply(body); }
  [[nodiscard]] FaultReply other() const { return goodReply(std::string(200'000, 'o'), "\"two\""); }
  /// Reads all of it, and lets go of it.
  void readAll(const std::string& path) { EXPECT_NE(bringAll(*at(path)), ""); }

  ManualTime time;
  const std::string body = patternedBytes(300'000);
  FaultServer server;
  ByteBudget budget{1600 * kKiB, 640 * kKiB};
  SharedResources resources{HttpClient::shared(), budget};
};

TEST_F(SharedResourcesTest, GivesReadersOfAnAddressTheSameOne) {
  EXPECT_EQ(at("/clip"), at("/clip"));
  EXPECT_NE(at("/clip"), at("/other"));
}

TEST_F(SharedResourcesTest, KeepsTheBytesForTheNextReader) {
  server.on("/clip", {good()});
  readAll("/clip");
  EXPECT_EQ(resources.keptCount(), 1U);
  time.leap(299 * kNanosecondsPerSecond);
  const auto again = at("/clip");
  EXPECT_EQ(resources.keptCount(), 0U);
  EXPECT_TRUE(areBytes(held(*again, 0, 300'000), body));
  EXPECT_EQ(again->size(), 300'000);
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(SharedResourcesTest, WhatOnePersonMayReadIsNotGivenToAnother) {
  server.on("/clip", {good()});
  const auto readAs = [&](const std::string& token) {
    resources.setFields(NSURL::URLWithString(server.address("/")), {{"X-Token", token}});
    readAll("/clip");
    EXPECT_EQ(server.requests().back().field("X-Token"), token);
  };
  readAs("one");
  readAs("two");
  EXPECT_TRUE(resources.keeps(NSURL::URLWithString(server.address("/clip"))));
  readAll("/clip");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SharedResourcesTest, KeepsTheLatestOfVeryMany) {
  constexpr int kMany = static_cast<int>(SharedResources::kMostKept) + 2;
  ByteBudget ample;
  SharedResources roomy{HttpClient::shared(), ample};
  const auto address = [&](int i) {
    return NSURL::URLWithString(server.address("/" + std::to_string(i)));
  };
  for (int i = 0; i < kMany; ++i) {
    server.on("/" + std::to_string(i), {goodReply("small")});
    EXPECT_EQ(bringAll(*roomy.at(address(i))), "small");
  }
  EXPECT_EQ(roomy.keptCount(), SharedResources::kMostKept);
  EXPECT_FALSE(roomy.keeps(address(1)));
  EXPECT_TRUE(roomy.keeps(address(2)));
}

TEST_F(SharedResourcesTest, KeepsNothingThatNobodyRead) {
  server.on("/clip", {good()});
  (void)at("/clip");
  EXPECT_EQ(resources.keptCount(), 0U);
}

TEST_F(SharedResourcesTest, KeepsNothingThatTheServerForbidsToKeep) {
  FaultReply reply = good();
  reply.fields = {{"Cache-Control", "no-store"}};
  server.on("/clip", {reply});
  readAll("/clip");
  EXPECT_EQ(resources.keptCount(), 0U);
  readAll("/clip");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SharedResourcesTest, ARedirectForNowIsAskedAgain) {
  const auto ledTo = [](const char* where) {
    FaultReply reply;
    reply.status = 302;
    reply.fields = {{"Location", where}};
    return reply;
  };
  FaultReply lasting = good();
  lasting.fields = {{"Cache-Control", "max-age=31536000"}};
  server.on("/latest", {ledTo("/one")});
  server.on("/one", {lasting});
  server.on("/two", {other()});
  readAll("/latest");
  server.on("/latest", {ledTo("/two")});
  EXPECT_TRUE(areBytes(bringAll(*at("/latest")), other().body));
}

TEST_F(SharedResourcesTest, ARedirectForGoodIsNot) {
  FaultReply moved;
  moved.status = 301;
  moved.fields = {{"Location", "/clip"}};
  server.on("/old", {moved});
  server.on("/clip", {good()});
  readAll("/old");
  readAll("/old");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SharedResourcesTest, AClipThatIsEmptyByNowIsSoAtOnce) {
  server.on("/clip", {good()});
  readAll("/clip");
  time.leap(300 * kNanosecondsPerSecond);
  FaultReply empty;
  empty.status = 416;
  empty.fields = {{"Content-Range", "bytes */0"}};
  server.on("/clip", {empty});
  const auto again = at("/clip");
  EXPECT_EQ(bringAll(*again), "");
  EXPECT_EQ(again->size(), 0);
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SharedResourcesTest, OfWhatIsKeptTheBeginningGoesLast) {
  server.on("/clip", {good()});
  readAll("/clip");
  std::vector<std::shared_ptr<HttpResource>> readers;
  for (int i = 0; i < 7; ++i) readers.push_back(at("/other" + std::to_string(i)));
  const auto again = at("/clip");
  EXPECT_NE(held(*again, 0, 1000), "");
  EXPECT_EQ(held(*again, 299'000, 1000), "");
}

TEST_F(SharedResourcesTest, AsksOnceWhetherOldBytesAreTheSame) {
  server.on("/clip", {good()});
  readAll("/clip");
  time.leap(300 * kNanosecondsPerSecond);
  const int64_t sent = bytesSentOnce(server, 300'000);
  const auto again = at("/clip");
  uint8_t byte = 0;
  EXPECT_EQ(again->readHeld(0, {&byte, 1}), -EAGAIN) << "before the server said so";
  EXPECT_EQ(again->size(), std::nullopt);
  EXPECT_TRUE(areBytes(bringAll(*again), body)) << errorOf(*again);
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[1].field("If-None-Match"), "\"one\"");
  EXPECT_EQ(server.bytesSent(), sent);
}

TEST_F(SharedResourcesTest, AsksAtOnceWhereTheServerWantsThat) {
  FaultReply reply = good();
  reply.fields = {{"Cache-Control", "no-cache"}};
  server.on("/clip", {reply});
  readAll("/clip");
  readAll("/clip");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SharedResourcesTest, DropsBytesThatTheServerHasOthersFor) {
  FaultReply slow = other();
  slow.pieceSize = 100'000;
  slow.pieceDelay = std::chrono::milliseconds(100);
  server.on("/clip", {good(), slow});
  readAll("/clip");
  time.leap(300 * kNanosecondsPerSecond);
  const auto again = at("/clip");
  EXPECT_TRUE(areBytes(bring(*again, 0, 1000), std::string(1000, 'o')));
  EXPECT_EQ(held(*again, 190'000, 10).find_first_not_of('o'), std::string::npos);
  EXPECT_TRUE(areBytes(bringAll(*again), std::string(200'000, 'o'))) << errorOf(*again);
  EXPECT_EQ(again->size(), 200'000);
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SharedResourcesTest, DropsOldBytesThatNothingIsKnownBy) {
  FaultReply nameless = good();
  nameless.entityTag.clear();
  FaultReply others = nameless;
  others.body = std::string(300'000, 'o');
  server.on("/clip", {nameless, others});
  readAll("/clip");
  time.leap(300 * kNanosecondsPerSecond);
  const auto again = at("/clip");
  EXPECT_TRUE(areBytes(bringAll(*again), others.body)) << errorOf(*again);
}

TEST_F(SharedResourcesTest, DropsFreshBytesThatTurnOutToBeOld) {
  FaultReply torn = good();
  torn.stallsAfter = 100'000;
  server.on("/clip", {torn, other()});
  bring(*at("/clip"), 0, 100'000);
  {
    const auto again = at("/clip");
    EXPECT_TRUE(areBytes(held(*again, 0, 100'000), body.substr(0, 100'000)));
    EXPECT_EQ(bring(*again, 250'000, 10), "");
    EXPECT_EQ(errorOf(*again), "\"clip\" changed while it was played.");
  }
  EXPECT_EQ(resources.keptCount(), 0U);
  EXPECT_TRUE(areBytes(bringAll(*at("/clip")), std::string(200'000, 'o')));
}

TEST_F(SharedResourcesTest, AsksOnlyForWhatIsNotHeld) {
  FaultReply torn = good();
  torn.stallsAfter = 100'000;
  server.on("/clip", {torn, good()});
  bring(*at("/clip"), 0, 100'000);
  EXPECT_TRUE(server.waitForLeaver()) << "the traffic ends with the last reader";
  EXPECT_TRUE(areBytes(bringAll(*at("/clip")), body));
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[1].field("Range"), "bytes=100000-");
}

TEST_F(SharedResourcesTest, ReadsOnAheadWhenReadingComesNearTheEndOfWhatWasKept) {
  FaultReply torn = good();
  torn.stallsAfter = 200'000;
  server.on("/clip", {torn, good()});
  bring(*at("/clip"), 0, 200'000);
  ASSERT_TRUE(server.waitForLeaver());
  const auto again = at("/clip");
  EXPECT_EQ(held(*again, 0, 140'000).size(), 140'000U);
  EXPECT_EQ(server.requests().size(), 1U) << "far from the end";
  EXPECT_EQ(held(*again, 140'000, 20'000).size(), 20'000U);
  EXPECT_TRUE(server.waitForRequests(2));
}

TEST_F(SharedResourcesTest, LetsTheLongestUnreadGoFirst) {
  for (int i = 0; i < 12; ++i) {
    const std::string path = "/" + std::to_string(i);
    server.on(path, {good()});
    readAll(path);
    EXPECT_LE(budget.counted(), budget.total()) << i;
  }
  // Of 320 KiB each.
  EXPECT_EQ(resources.keptCount(), 5U);
  for (const int i : {7, 8, 9, 10, 11}) readAll("/" + std::to_string(i));
  EXPECT_EQ(server.requests().size(), 12U);
  readAll("/6");
  EXPECT_EQ(server.requests().size(), 13U);
}

TEST_F(SharedResourcesTest, LetsWhatIsReadComeBeforeWhatIsKept) {
  for (const char* path : {"/a", "/b", "/c", "/d", "/e", "/f", "/g", "/h", "/i", "/j"}) {
    server.on(path, {good()});
  }
  for (const char* path : {"/a", "/b", "/c", "/d", "/e"}) readAll(path);
  EXPECT_EQ(resources.keptCount(), 5U);
  std::vector<std::shared_ptr<HttpResource>> read;
  for (const char* path : {"/f", "/g", "/h", "/i", "/j"}) {
    read.push_back(at(path));
    EXPECT_TRUE(areBytes(bringAll(*read.back()), body));
  }
  EXPECT_EQ(resources.keptCount(), 0U);
  EXPECT_LE(budget.counted(), budget.total());
}

TEST_F(SharedResourcesTest, ForgetsWhatItIsToldTo) {
  server.on("/clip", {good()});
  readAll("/clip");
  resources.forgetKept();
  EXPECT_EQ(resources.keptCount(), 0U);
  EXPECT_EQ(budget.counted(), 0);
}

}  // namespace
}  // namespace zaffo::network
