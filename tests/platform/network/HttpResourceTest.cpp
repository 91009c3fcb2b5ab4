// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpResource.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <latch>
#include <thread>

#include "doubles/FaultServer.h"
#include "platform/network/NetworkError.h"
#include "platform/network/RemoteBytes.h"

namespace zaffo::network {
namespace {

using std::chrono::milliseconds;

class HttpResourceTest : public testing::Test {
 protected:
  /// Serves the replies at "/clip", and gives the resource that reads them.
  HttpResource& open(std::vector<FaultReply> replies, HttpOptions options = quickOptions()) {
    server.on("/clip", std::move(replies));
    return openAt("/clip", std::move(options));
  }
  HttpResource& openAt(const std::string& path, HttpOptions options = quickOptions()) {
    resource = std::make_unique<HttpResource>(NSURL::URLWithString(server.address(path)),
                                              std::move(options), HttpClient::shared(), budget);
    return *resource;
  }
  /// A reply with the body that the tests expect.
  [[nodiscard]] FaultReply good() const { return goodReply(body); }
  [[nodiscard]] std::vector<std::string> ranges() const {
    std::vector<std::string> asked;
    for (const auto& request : server.requests()) asked.push_back(request.field("Range"));
    return asked;
  }

  const std::string body = patternedBytes(300'000);
  const std::string longBody = patternedBytes(2'000'000);
  FaultServer server;
  ByteBudget budget;
  std::unique_ptr<HttpResource> resource;
};

using Ranges = std::vector<std::string>;

TEST_F(HttpResourceTest, AsksOnceForAllAndLearnsTheSize) {
  auto& clip = open({good()});
  EXPECT_EQ(clip.size(), std::nullopt);
  uint8_t byte = 0;
  EXPECT_EQ(clip.readHeld(0, {&byte, 1}), -EAGAIN);
  EXPECT_TRUE(areBytes(bring(clip, 0, 1000), body.substr(0, 1000)));
  EXPECT_EQ(clip.size(), 300'000);
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(clip.readHeld(300'000, {&byte, 1}), 0);
  EXPECT_EQ(ranges(), Ranges{"bytes=0-"});
  EXPECT_EQ(clip.error(), nullptr);
}

TEST_F(HttpResourceTest, TellsWhatIsHereBehindWhatWasRead) {
  FaultReply stalled = good();
  stalled.stallsAfter = 100'000;
  auto& clip = open({stalled, good()}, impatientOptions());
  EXPECT_EQ(clip.ahead().count, 0);
  EXPECT_FALSE(clip.ahead().isFull);
  await(clip, 0, 100'000);
  EXPECT_EQ(held(clip, 0, 30'000).size(), 30'000U);
  auto ahead = clip.ahead();
  EXPECT_EQ(ahead.count, 70'000);
  EXPECT_FALSE(ahead.isRest || ahead.isAll || ahead.isFull);
  await(clip, 0, 300'000);
  EXPECT_EQ(held(clip, 0, 30'000).size(), 30'000U);
  ahead = clip.ahead();
  EXPECT_TRUE(ahead.isRest && ahead.isAll && ahead.isFull);
}

TEST_F(HttpResourceTest, TellsThatTheRestIsHereWhereTheBeginningIsNot) {
  auto& clip = open({good()});
  bring(clip, 250'000, 10);
  await(clip, 250'000, 50'000);
  EXPECT_TRUE(clip.ahead().isRest);
  EXPECT_FALSE(clip.ahead().isAll);
}

TEST_F(HttpResourceTest, AsksForNothingUntilSomethingIsWanted) {
  auto& clip = open({good()});
  uint8_t byte = 0;
  EXPECT_EQ(clip.readHeld(0, {&byte, 1}), -EAGAIN);
  EXPECT_EQ(clip.readHeld(-1, {&byte, 1}), -EINVAL);
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(HttpResourceTest, SaysWhoAsks) {
  bringAll(open({good()}));
  EXPECT_TRUE(server.requests().front().field("User-Agent").starts_with("ZaffoPlayback/"));
  EXPECT_EQ(server.requests().front().field("Accept-Encoding"), "identity");
}

TEST_F(HttpResourceTest, ReadsAgainWithoutAskingAgain) {
  auto& clip = open({good()});
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_TRUE(areBytes(bring(clip, 100'000, 50'000), body.substr(100'000, 50'000)));
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(HttpResourceTest, GoesToTheEndForAnIndexAndComesBackOnTheSameBytes) {
  FaultReply slow = good();
  slow.stallsAfter = 70'000;
  auto& clip = open({slow, good()});
  EXPECT_TRUE(areBytes(bring(clip, 0, 100), body.substr(0, 100)));
  await(clip, 0, 70'000);
  EXPECT_TRUE(areBytes(bring(clip, 299'000, 1000), body.substr(299'000)));
  EXPECT_TRUE(areBytes(bring(clip, 0, 300'000), body)) << "though the first answer is dead";
  ASSERT_EQ(server.requests().size(), 3U);
  EXPECT_EQ(ranges()[1], "bytes=299000-");
  EXPECT_EQ(ranges()[2], "bytes=70000-298999");
  EXPECT_EQ(server.requests()[1].field("If-Range"), "\"one\"");
}

/// Of a clip whose index is at the end the first picture comes while the index is fetched.
TEST_F(HttpResourceTest, BringsTheBeginningWhileItIsReadAtTheEnd) {
  FaultReply slow = goodReply(longBody);
  slow.pieceSize = 8'000;
  slow.pieceDelay = milliseconds(20);
  FaultReply late = goodReply(longBody);
  late.headDelay = milliseconds(200);
  auto& clip = open({slow, late, goodReply(longBody)});
  await(clip, 0, 8'000);
  EXPECT_TRUE(areBytes(bring(clip, 1'990'000, 10'000), longBody.substr(1'990'000)));
  EXPECT_TRUE(areBytes(bring(clip, 0, 80'000), longBody.substr(0, 80'000)));
  EXPECT_EQ(ranges(), (Ranges{"bytes=0-", "bytes=1990000-"}));
  EXPECT_TRUE(areBytes(bring(clip, 80'000, 100'000), longBody.substr(80'000, 100'000)));
  EXPECT_EQ(ranges().size(), 2U) << "which goes on";
}

TEST_F(HttpResourceTest, BringsNoMoreThanTheBeginningWhileItIsReadAtTheEnd) {
  FaultReply slow = goodReply(longBody);
  slow.pieceSize = 8'000;
  slow.pieceDelay = milliseconds(1);
  FaultReply stalled = goodReply(longBody);
  stalled.stallsAfter = 5'000;
  auto& clip = open({slow, stalled, goodReply(longBody)});
  await(clip, 0, 8'000);
  const auto want = clip.want(1'990'000, 10'000, [] {});
  EXPECT_TRUE(server.waitForLeaver());
  const auto count = held(clip, 0, 2'000'000).size();
  EXPECT_GE(count, 256U * 1024);
  EXPECT_LT(count, 400'000U);
}

TEST_F(HttpResourceTest, EndsWhereAllThatFollowsIsHere) {
  FaultReply stalled = goodReply(longBody.substr(0, 600'000));
  FaultReply late = stalled;
  stalled.pieceSize = 8'000;
  stalled.pieceDelay = milliseconds(4);
  stalled.stallsAfter = 560'000;
  late.headDelay = milliseconds(40);
  auto& clip = open({stalled, late});
  await(clip, 0, 8'000);
  await(clip, 550'000, 50'000);
  EXPECT_TRUE(areBytes(bringAll(clip), longBody.substr(0, 600'000)));
  EXPECT_TRUE(server.waitForLeaver());
}

TEST_F(HttpResourceTest, BringsWhatLiesBetweenHeldBytesAndAPlaceCloseBehind) {
  FaultReply slow = good();
  slow.stallsAfter = 70'000;
  auto& clip = open({slow, good()});
  EXPECT_TRUE(areBytes(bring(clip, 0, 70'000), body.substr(0, 70'000)));
  EXPECT_TRUE(areBytes(bring(clip, 299'000, 1000), body.substr(299'000)));
  EXPECT_TRUE(areBytes(bring(clip, 100'000, 100), body.substr(100'000, 100)));
  EXPECT_TRUE(areBytes(bring(clip, 80'000, 100), body.substr(80'000, 100)));
  ASSERT_EQ(server.requests().size(), 3U);
  EXPECT_EQ(ranges()[2], "bytes=70000-298999");
}

TEST_F(HttpResourceTest, KeepsItsConnection) {
  auto& clip = open({good()});
  EXPECT_TRUE(areBytes(bring(clip, 299'000, 1000), body.substr(299'000)));
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(HttpResourceTest, ReadsOnInOrderWhereRangesAreIgnored) {
  FaultReply reply = good();
  reply.servesRanges = false;
  auto& clip = open({reply});
  EXPECT_TRUE(areBytes(bring(clip, 250'000, 1000), body.substr(250'000, 1000)));
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(clip.size(), 300'000);
}

TEST_F(HttpResourceTest, ReadsWhatHasNoLengthToItsEnd) {
  FaultReply reply = good();
  reply.servesRanges = false;
  reply.hasNoLength = true;
  auto& clip = open({reply});
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(clip.size(), 300'000);
}

TEST_F(HttpResourceTest, ReadsChunks) {
  FaultReply reply = good();
  reply.servesRanges = false;
  reply.isChunked = true;
  reply.pieceSize = 7777;
  EXPECT_TRUE(areBytes(bringAll(open({reply})), body));
}

TEST_F(HttpResourceTest, ReadsFromAnOldServer) {
  FaultReply reply = good();
  reply.isVersion10 = true;
  reply.servesRanges = false;
  EXPECT_TRUE(areBytes(bringAll(open({reply})), body));
}

TEST_F(HttpResourceTest, ReadsAByteAtATime) {
  FaultReply reply = good();
  reply.body = "some bytes";
  reply.pieceSize = 1;
  reply.pieceDelay = milliseconds(2);
  EXPECT_EQ(bringAll(open({reply})), "some bytes");
}

TEST_F(HttpResourceTest, ReadsAnEmptyFile) {
  FaultReply reply = good();
  reply.body.clear();
  auto& clip = open({reply});
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(clip.size(), 0);
  EXPECT_EQ(clip.error(), nullptr);
}

TEST_F(HttpResourceTest, GoesOnWhereItWasBrokenOff) {
  FaultReply torn = good();
  torn.closesAfter = 100'000;
  EXPECT_TRUE(areBytes(bringAll(open({torn, good()})), body));
  EXPECT_EQ(ranges(), (Ranges{"bytes=0-", "bytes=100000-"}));
  EXPECT_EQ(server.requests()[1].field("If-Range"), "\"one\"");
}

TEST_F(HttpResourceTest, GoesOnWhereAServerStoppedSending) {
  FaultReply stalled = good();
  stalled.stallsAfter = 100'000;
  EXPECT_TRUE(areBytes(bringAll(open({stalled, good()}, impatientOptions())), body));
  EXPECT_EQ(ranges(), (Ranges{"bytes=0-", "bytes=100000-"}));
}

TEST_F(HttpResourceTest, ReadsAnewWhereATornServerIgnoresRanges) {
  FaultReply torn = good();
  torn.servesRanges = false;
  torn.closesAfter = 100'000;
  FaultReply whole = good();
  whole.servesRanges = false;
  EXPECT_TRUE(areBytes(bringAll(open({torn, whole})), body));
}

TEST_F(HttpResourceTest, GivesUpOnAServerThatAlwaysStalls) {
  FaultReply stalled = good();
  stalled.stallsAfter = 0;
  HttpOptions options = impatientOptions();
  options.retries.attempts = 3;
  auto& clip = open({stalled}, options);
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server \"127.0.0.1\" stopped sending.");
  EXPECT_EQ(clip.error()->code(), NSURLErrorTimedOut);
  EXPECT_EQ(server.requests().size(), 3U);
  uint8_t byte = 0;
  EXPECT_EQ(clip.readHeld(0, {&byte, 1}), -EIO);
}

TEST_F(HttpResourceTest, GivesUpOnAServerThatDoesNotAnswer) {
  FaultReply late = good();
  late.headDelay = std::chrono::seconds(60);
  HttpOptions options = impatientOptions();
  options.limits.firstByte = milliseconds(50);
  options.retries.attempts = 2;
  auto& clip = open({late}, options);
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server \"127.0.0.1\" did not answer in time.");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(HttpResourceTest, TriesAgainWhenSomethingIsWantedAfterAFailureThatMayPass) {
  FaultReply stalled = good();
  stalled.stallsAfter = 0;
  HttpOptions options = impatientOptions();
  options.retries.attempts = 1;
  auto& clip = open({stalled, good()}, options);
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(clip.error(), nullptr);
}

TEST_F(HttpResourceTest, TellsWhenNobodyIsThere) {
  std::string gone;
  {
    FaultServer other;
    gone = other.address("/clip");
  }
  HttpResource clip(NSURL::URLWithString(gone), quickOptions());
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server \"127.0.0.1\" cannot be reached.");
}

TEST_F(HttpResourceTest, GivesUpOnALengthThatIsTooLong) {
  FaultReply wrong = good();
  wrong.body = "short";
  wrong.servesRanges = false;
  wrong.claimedLength = 500;
  wrong.closesAfter = 5;
  auto& clip = open({wrong});
  EXPECT_EQ(bringAll(clip), "short");
  EXPECT_EQ(errorOf(clip), "The server \"127.0.0.1\" closed the connection midway.");
}

TEST_F(HttpResourceTest, EndsWhereALengthThatIsTooShortSays) {
  FaultReply wrong = good();
  wrong.servesRanges = false;
  wrong.claimedLength = 1000;
  auto& clip = open({wrong});
  EXPECT_EQ(bringAll(clip), body.substr(0, 1000));
  EXPECT_EQ(clip.size(), 1000);
}

TEST_F(HttpResourceTest, RefusesAnotherRangeThanItAskedFor) {
  FaultReply wrong = good();
  wrong.claimedRange = "bytes 5-300004/300005";
  auto& clip = open({wrong});
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server of \"clip\" sent another range than it was asked for.");
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(HttpResourceTest, AsksForTheRestOfARangeThatIsShort) {
  FaultReply part = good();
  part.body = body.substr(0, 100'000);
  part.claimedRange = "bytes 0-99999/300000";
  EXPECT_TRUE(areBytes(bringAll(open({part, good()})), body));
  EXPECT_EQ(ranges(), (Ranges{"bytes=0-", "bytes=100000-"}));
}

TEST_F(HttpResourceTest, TellsWhenTheFileChangedMidway) {
  FaultReply torn = good();
  torn.closesAfter = 100'000;
  FaultReply other = good();
  other.entityTag = "\"two\"";
  auto& clip = open({torn, other});
  EXPECT_EQ(bringAll(clip), body.substr(0, 100'000));
  EXPECT_EQ(errorOf(clip), "\"clip\" changed while it was played.");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(HttpResourceTest, TellsWhenTheFileBecameShorter) {
  FaultReply torn = good();
  torn.closesAfter = 100'000;
  torn.entityTag.clear();
  FaultReply shorter = torn;
  shorter.body = "less";
  auto& clip = open({torn, shorter});
  EXPECT_EQ(bringAll(clip), body.substr(0, 100'000));
  EXPECT_EQ(errorOf(clip), "\"clip\" changed while it was played.");
}

TEST_F(HttpResourceTest, EndsWhereThereIsNothingBeyond) {
  auto& clip = open({good()});
  EXPECT_EQ(bring(clip, 400'000, 10), "");
  EXPECT_EQ(clip.error(), nullptr);
  EXPECT_EQ(clip.size(), 300'000);
}

TEST_F(HttpResourceTest, WaitsForAServerInTrouble) {
  FaultReply trouble;
  trouble.status = 503;
  EXPECT_TRUE(areBytes(bringAll(open({trouble, trouble, good()})), body));
  EXPECT_EQ(server.requests().size(), 3U);
}

TEST_F(HttpResourceTest, WaitsAsLongAsTheServerAsks) {
  FaultReply patience;
  patience.status = 429;
  patience.fields = {{"Retry-After", "1"}};
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_TRUE(areBytes(bringAll(open({patience, good()})), body));
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));
}

TEST_F(HttpResourceTest, GivesUpOnAServerThatStaysInTrouble) {
  FaultReply trouble;
  trouble.status = 500;
  auto& clip = open({trouble});
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server cannot deliver \"clip\" at present (500).");
  EXPECT_EQ(server.requests().size(), 5U);
}

TEST_F(HttpResourceTest, DoesNotAskAgainForWhatIsNotThere) {
  auto& clip = openAt("/none");
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "\"none\" does not exist (404).");
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(HttpResourceTest, RefusesWhatIsCompressed) {
  FaultReply compressed = good();
  compressed.fields = {{"Content-Encoding", "gzip"}};
  auto& clip = open({compressed});
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server of \"clip\" compressed the file, which it must not.");
}

TEST_F(HttpResourceTest, BoundsAHeadWithoutAnEnd) {
  FaultReply endless = good();
  endless.hasEndlessHead = true;
  auto& clip = open({endless});
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server \"127.0.0.1\" sent a head without an end.");
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(HttpResourceTest, TellsOfWhatIsNoHttp) {
  FaultReply wrong = good();
  wrong.fields = {{"Content-Length", "x"}};
  wrong.hasNoLength = true;
  wrong.servesRanges = false;
  auto& clip = open({wrong});
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_NE(errorOf(clip), "");
}

class RedirectTest : public HttpResourceTest {
 protected:
  void redirect(const std::string& path, const std::string& location, int status = 302) {
    FaultReply reply;
    reply.status = status;
    reply.fields = {{"Location", location}};
    server.on(path, {reply});
  }
};

TEST_F(RedirectTest, IsFollowedAndRemembered) {
  redirect("/a", "/b", 301);
  redirect("/b", server.address("/clip"), 307);
  server.on("/clip", {good()});
  auto& clip = openAt("/a");
  EXPECT_TRUE(areBytes(bring(clip, 299'000, 1000), body.substr(299'000)));
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_EQ(requests[3].path, "/clip");
}

TEST_F(RedirectTest, IsFollowedAnewWhenWhereItLedIsGone) {
  redirect("/a", "/clip");
  FaultReply gone;
  gone.status = 403;
  server.on("/clip", {good(), gone, good()});
  auto& clip = openAt("/a");
  EXPECT_TRUE(areBytes(bring(clip, 299'000, 1000), body.substr(299'000)));
  EXPECT_TRUE(areBytes(bringAll(clip), body)) << errorOf(clip);
  EXPECT_EQ(server.requests().size(), 5U);
}

TEST_F(RedirectTest, EndsWithinItsBound) {
  redirect("/a", "/b");
  redirect("/b", "/a");
  auto& clip = openAt("/a");
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip),
            "The server \"127.0.0.1\" leads from one address to the next without an end.");
  EXPECT_EQ(server.requests().size(), 11U);
}

TEST_F(RedirectTest, NeverLeadsToAFileOrAnotherScheme) {
  for (const char* const trick : {"file:///etc/passwd", "data:text/plain,x", "ftp://127.0.0.1/x"}) {
    redirect("/a", trick);
    auto& clip = openAt("/a");
    EXPECT_EQ(bringAll(clip), "");
    EXPECT_EQ(errorOf(clip), "The server named an address that is not on the network.");
  }
}

TEST_F(RedirectTest, TakesWhatTheApplicationGaveToNobodyElse) {
  FaultServer other;
  other.on("/clip", {good()});
  redirect("/a", other.address("/clip"));
  HttpOptions options = quickOptions();
  options.fields = {{"Cookie", "token=1"}, {"X-Token", "secret"}, {"Bad", "a\r\nInjected: 1"}};
  EXPECT_TRUE(areBytes(bringAll(openAt("/a", options)), body));
  EXPECT_EQ(server.requests()[0].field("Cookie"), "token=1");
  EXPECT_EQ(server.requests()[0].field("X-Token"), "secret");
  EXPECT_EQ(server.requests()[0].field("Injected"), "");
  EXPECT_EQ(other.requests()[0].field("Cookie"), "");
  EXPECT_EQ(other.requests()[0].field("X-Token"), "");
}

class TrafficTest : public HttpResourceTest {
 protected:
  /// A reply that goes on for as long as anybody listens.
  [[nodiscard]] FaultReply slow() const {
    FaultReply reply = good();
    reply.pieceSize = 10'000;
    reply.pieceDelay = milliseconds(20);
    return reply;
  }
};

TEST_F(TrafficTest, EndsWithTheResource) {
  bring(open({slow()}), 0, 1000);
  resource.reset();
  EXPECT_TRUE(server.waitForLeaver());
  EXPECT_LT(server.bytesSent(), 300'000);
}

TEST_F(TrafficTest, EndsWithTheLastWantThatWasNotMet) {
  auto& clip = open({slow()});
  auto one = clip.want(0, 300'000, [] {});
  auto other = clip.want(0, 200'000, [] {});
  ASSERT_TRUE(server.waitForRequests(1));
  one.reset();
  EXPECT_TRUE(areBytes(bring(clip, 0, 20'000), body.substr(0, 20'000)));
  other.reset();
  EXPECT_TRUE(server.waitForLeaver());
  EXPECT_LT(server.bytesSent(), 300'000);
}

TEST_F(TrafficTest, RunsAheadNoFurtherThanTheBoundAllows) {
  const std::string large = patternedBytes(24 << 20);
  FaultReply reply;
  reply.body = large;
  HttpOptions options = quickOptions();
  auto& clip = open({reply}, options);
  for (int64_t at = 0; at < (24 << 20); at += 1 << 20) {
    ASSERT_TRUE(
        areBytes(bring(clip, at, 1 << 20), large.substr(static_cast<std::size_t>(at), 1 << 20)));
    ASSERT_EQ(held(clip, at + (6 << 20), 1), "") << "more than the bound allows lies ahead";
    ASSERT_LE(clip.ahead().count, 5 << 20);
  }
  // It paused and went on, and never had to ask again.
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(TrafficTest, OfOneResourceKeepsThatOfAnotherWaitingNowhere) {
  FaultReply stalled = good();
  stalled.stallsAfter = 1000;
  server.on("/one", {stalled});
  server.on("/other", {stalled});
  std::vector<std::unique_ptr<HttpResource>> clips;
  std::vector<std::unique_ptr<media::ByteSource::Want>> wants;
  for (const char* path : {"/one", "/other"}) {
    clips.push_back(std::make_unique<HttpResource>(NSURL::URLWithString(server.address(path)),
                                                   quickOptions(), HttpClient::shared(), budget));
    wants.push_back(clips.back()->want(0, 2000, [] {}));
  }
  EXPECT_TRUE(server.waitForRequests(2));
}

TEST_F(TrafficTest, OfManyResourcesHasOneThread) {
  server.on("/clip", {slow()});
  std::vector<std::unique_ptr<HttpResource>> clips;
  for (int i = 0; i < 16; ++i) {
    clips.push_back(std::make_unique<HttpResource>(NSURL::URLWithString(server.address("/clip")),
                                                   quickOptions(), HttpClient::shared(), budget));
  }
  std::latch met(16);
  std::atomic<int> elsewhere{0};
  std::vector<std::unique_ptr<media::ByteSource::Want>> wants;
  for (const auto& clip : clips) {
    wants.push_back(clip->want(0, 1000, [&] {
      if (!NetworkLoop::shared().isOnThread()) ++elsewhere;
      met.count_down();
    }));
  }
  met.wait();
  EXPECT_EQ(elsewhere, 0);
}

TEST_F(HttpResourceTest, TellsNobodyWhoGaveUp) {
  FaultReply reply = good();
  reply.headDelay = milliseconds(30);
  auto& clip = open({reply});
  bool told = false;
  auto given = clip.want(0, 10, [&] { told = true; });
  given.reset();
  EXPECT_TRUE(areBytes(bring(clip, 0, 10), body.substr(0, 10)));
  EXPECT_FALSE(told);
}

TEST_F(HttpResourceTest, WaitsForAHandlerThatRunsBeforeAWantIsGone) {
  auto& clip = open({good()});
  std::latch entered(1);
  std::atomic<bool> returned{false};
  auto want = clip.want(0, 10, [&] {
    entered.count_down();
    // Long enough for the other thread to come out of the destructor if that did not wait.
    for (const auto end = std::chrono::steady_clock::now() + milliseconds(50);
         std::chrono::steady_clock::now() < end;) {
    }
    returned = true;
  });
  entered.wait();
  want.reset();
  EXPECT_TRUE(returned);
}

TEST_F(HttpResourceTest, LetsAHandlerDropItsOwnWant) {
  auto& clip = open({good()});
  std::unique_ptr<media::ByteSource::Want> want;
  std::promise<void> dropped;
  std::latch made(1);
  want = clip.want(0, 10, [&] {
    made.wait();
    want.reset();
    dropped.set_value();
  });
  made.count_down();
  EXPECT_EQ(dropped.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(HttpResourceTest, MeasuresWhatComes) {
  HttpClient client;
  const std::string large = patternedBytes(2 << 20);
  FaultReply reply;
  reply.body = large;
  server.on("/clip", {reply});
  HttpResource clip(NSURL::URLWithString(server.address("/clip")), quickOptions(), client, budget);
  EXPECT_EQ(client.bitsPerSecond(), std::nullopt);
  EXPECT_TRUE(areBytes(bringAll(clip), large)) << errorOf(clip);
  // The last of the transfer is told a moment after its bytes.
  while (!client.bitsPerSecond()) std::this_thread::yield();
  EXPECT_GT(*client.bitsPerSecond(), 1e6);
}

}  // namespace
}  // namespace zaffo::network
