// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "doubles/FaultServer.h"
#include "platform/network/PreloadBytes.h"
#include "platform/network/RemoteBytes.h"

namespace zaffo::network {
namespace {

using std::chrono::milliseconds;

/// Clips that are preloaded beside pages that are read.
class PreloadTest : public testing::Test {
 protected:
  std::shared_ptr<HttpResource> at(const std::string& path) {
    return std::make_shared<HttpResource>(NSURL::URLWithString(server.address(path)),
                                          quickOptions(), client, budget);
  }
  [[nodiscard]] FaultReply good() const { return goodReply(body); }
  /// One that comes in ten pieces, a few milliseconds apart.
  [[nodiscard]] FaultReply slow() const {
    FaultReply reply = good();
    reply.pieceSize = 52'000;
    reply.pieceDelay = milliseconds(15);
    return reply;
  }
  /// One for which a reader waits a while.
  [[nodiscard]] FaultReply late() const {
    FaultReply reply = good();
    reply.headDelay = milliseconds(400);
    reply.pieceSize = 500;
    return reply;
  }
  [[nodiscard]] std::vector<std::string> paths() const {
    std::vector<std::string> asked;
    for (const auto& request : server.requests()) asked.push_back(request.path);
    return asked;
  }

  const std::string body = patternedBytes(2'000'000);
  FaultServer server;
  HttpClient client;
  ByteBudget budget;
};

using Paths = std::vector<std::string>;

TEST_F(PreloadTest, ComesInPiecesOnOneConnectionWithNothingAhead) {
  server.on("/clip", {good()});
  const auto clip = at("/clip");
  PreloadBytes preload(clip);
  await(preload, 0, 524'288);
  await(preload, 524'288, 1000);
  await(preload, 524'288, 524'288);
  EXPECT_TRUE(areBytes(held(*clip, 0, 1'048'576), body.substr(0, 1'048'576)));
  EXPECT_EQ(held(*clip, 1'048'576, 1), "");
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].field("Range"), "bytes=0-524287");
  EXPECT_EQ(requests[1].field("Range"), "bytes=524288-1048575");
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(PreloadTest, APiecesEndIsNotTheClipsWhereTheServerDoesNotTellThat) {
  FaultReply piece = good();
  piece.claimedRange = "bytes 0-524287/*";
  server.on("/clip", {piece, good()});
  const auto clip = at("/clip");
  PreloadBytes preload(clip);
  await(preload, 0, 524'288);
  await(preload, 524'288, 1000);
  EXPECT_EQ(clip->size(), 2'000'000);
  EXPECT_TRUE(areBytes(held(*clip, 524'288, 1000), body.substr(524'288, 1000)));
}

TEST_F(PreloadTest, AShortClipComesOnceFromAServerWithoutRangesOrLengths) {
  FaultReply reply = good();
  reply.body = patternedBytes(100'000);
  reply.servesRanges = false;
  for (const bool isChunked : {true, false}) {
    reply.isChunked = isChunked;
    reply.hasNoLength = !isChunked;
    const std::string path = isChunked ? "/chunked" : "/closed";
    server.on(path, {reply});
    const auto clip = at(path);
    PreloadBytes preload(clip);
    await(preload, 0, 200'000);
    EXPECT_EQ(clip->size(), 100'000) << path;
    EXPECT_EQ(std::ranges::count(paths(), path), 1) << path;
  }
}

TEST_F(PreloadTest, WhatExceedsTheBoundKeepsItsFirstBytes) {
  ByteBudget little{1600 * 1024, 640 * 1024};
  server.on("/clip", {good()});
  const auto clip = std::make_shared<HttpResource>(NSURL::URLWithString(server.address("/clip")),
                                                   quickOptions(), client, little);
  PreloadBytes preload(clip);
  for (int64_t place = 0; place < 1'000'000; place += 50'000) await(preload, place, 50'000);
  EXPECT_TRUE(areBytes(held(*clip, 0, 1000), body.substr(0, 1000)));
}

TEST_F(PreloadTest, OfTwoOfOneClipTheOtherGoesOn) {
  server.on("/page", {late()});
  server.on("/clip", {good()});
  const auto page = at("/page"), clip = at("/clip");
  auto first = std::make_unique<PreloadBytes>(clip);
  PreloadBytes second(clip);
  const auto reader = page->want(0, 1000, [] {});
  auto met = std::make_shared<std::promise<void>>();
  const auto wanted = second.want(0, 1000, [met] { met->set_value(); });
  first.reset();
  EXPECT_EQ(met->get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

TEST_F(PreloadTest, DoesNotBeginWhileAReaderWaits) {
  server.on("/page", {late()});
  server.on("/clip", {good()});
  const auto page = at("/page"), clip = at("/clip");
  std::promise<void> met;
  auto isMet = met.get_future();
  const auto want = page->want(0, 1000, [&] { met.set_value(); });
  PreloadBytes preload(clip);
  const auto other = preload.want(0, 1000, [] {});
  ASSERT_TRUE(server.waitForRequests(2));
  EXPECT_GT(server.bytesSent(), 0) << "of the page, which comes first";
  ASSERT_EQ(isMet.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  await(preload, 0, 1000);
  EXPECT_EQ(paths(), (Paths{"/page", "/clip"}));
}

TEST_F(PreloadTest, TakesNoMoreBytesWhileAReaderWaits) {
  server.on("/page", {late()});
  server.on("/clip", {slow()});
  const auto page = at("/page"), clip = at("/clip");
  PreloadBytes preload(clip);
  await(preload, 0, 1000);
  const auto rest = preload.want(0, 520'000, [] {});
  std::promise<std::size_t> met;
  auto heldThen = met.get_future();
  const auto want = page->want(0, 1000, [&] { met.set_value(held(*clip, 0, 520'000).size()); });
  const auto before = held(*clip, 0, 520'000).size();
  ASSERT_EQ(heldThen.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  // What was being taken as the reader began to wait.
  EXPECT_LE(heldThen.get() - before, 65'536U);
  await(preload, 0, 520'000);
  EXPECT_EQ(held(*clip, 0, 520'000).size(), 520'000U);
  EXPECT_EQ(paths(), (Paths{"/clip", "/page"}));
}

TEST_F(PreloadTest, ALetGoReaderLetsItGoOn) {
  FaultReply never = good();
  never.stallsAfter = 0;
  server.on("/page", {never});
  server.on("/clip", {good()});
  auto page = at("/page");
  const auto clip = at("/clip");
  auto want = page->want(0, 1000, [] {});
  ASSERT_TRUE(server.waitForRequests(1));
  PreloadBytes preload(clip);
  std::promise<void> met;
  const auto wanted = preload.want(0, 1000, [&] { met.set_value(); });
  page.reset();
  EXPECT_EQ(met.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

TEST_F(PreloadTest, OfWhatIsReadHoldsNobodyUp) {
  server.on("/clip", {good()});
  const auto clip = at("/clip");
  PreloadBytes preload(clip);
  const auto other = preload.want(1'900'000, 1000, [] {});
  EXPECT_TRUE(areBytes(bring(*clip, 0, 1000), body.substr(0, 1000)));
  EXPECT_TRUE(areBytes(bringAll(*clip), body));
}

TEST_F(PreloadTest, EndsItsTrafficWhenItEnds) {
  FaultReply stalled = good();
  stalled.stallsAfter = 100'000;
  server.on("/clip", {stalled});
  const auto clip = at("/clip");
  {
    PreloadBytes preload(clip);
    await(preload, 0, 1000);
  }
  EXPECT_TRUE(server.waitForLeaver());
}

}  // namespace
}  // namespace zaffo::network
