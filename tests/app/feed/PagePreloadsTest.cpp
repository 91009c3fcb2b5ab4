// SPDX-License-Identifier: Apache-2.0
#include "feed/PagePreloads.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "app/feed/RecordingPreloader.h"
#include "doubles/FaultServer.h"
#include "doubles/MainLoopUntil.h"
#include "media/Clips.h"

namespace zaffo::feed {
namespace {

constexpr int64_t kTwentySeconds = 20'000'000'000;

/// Four pages on a server, and one of a local file behind them.
class PagePreloadsTest : public testing::Test {
 protected:
  PagePreloadsTest() {
    std::ifstream file(test::clip("h264_30.mp4"), std::ios::binary);
    clip_.body.assign(std::istreambuf_iterator<char>(file), {});
    clip_.entityTag = "\"clip\"";
    for (int page = 0; page < 4; ++page) server_.on(pathOf(page), {clip_});
  }
  /// Nothing of a test's stays with the preloader, which is everybody's.
  ~PagePreloadsTest() override {
    preloads_.keepOnly({});
    dispatch_wait_until_idle();
  }

  /// No other test's server ever had this path.
  [[nodiscard]] static std::string pathOf(int page) {
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    return "/" + std::string(test->name()) + std::to_string(page) + ".mp4";
  }
  [[nodiscard]] std::shared_ptr<const NSURL> addressOf(int page) const {
    return page < 4 ? NSURL::URLWithString(server_.address(pathOf(page)))
                    : NSURL::fileURLWithPath(test::clip("h264_30.mp4"));
  }
  [[nodiscard]] bool wasAsked(int page) const {
    const auto requests = server_.requests();
    return std::ranges::any_of(requests,
                               [&](const auto& request) { return request.path == pathOf(page); });
  }
  bool isAskedSoon(int page) {
    return runMainLoopUntil([&] { return wasAsked(page); }, kTwentySeconds);
  }

  FaultReply clip_;
  FaultServer server_;
  PagePreloads preloads_{NetworkPreloader::shared(), [this](int page) { return addressOf(page); }};
};

TEST_F(PagePreloadsTest, FetchesPagesOfTheNetworkOnce) {
  preloads_.fetch({3, 4});
  preloads_.fetch({3, 4});
  EXPECT_TRUE(isAskedSoon(3));
  preloads_.fetch({2, 3});
  EXPECT_TRUE(isAskedSoon(2));
  EXPECT_EQ(server_.requests().size(), 2U);
}

TEST_F(PagePreloadsTest, EndsTheTrafficOfPagesThatWereLeft) {
  FaultReply stalled = clip_;
  stalled.stallsAfter = 1000;
  server_.on(pathOf(1), {stalled});
  server_.on(pathOf(2), {stalled});
  preloads_.fetch({1, 2});
  ASSERT_TRUE(isAskedSoon(1));
  ASSERT_TRUE(isAskedSoon(2));
  preloads_.keepOnly({2, 3});
  EXPECT_TRUE(server_.waitForLeaver());
  // Only two are fetched at a time: this one has the place of the one that was left.
  preloads_.fetch({2, 3});
  EXPECT_TRUE(isAskedSoon(3));
}

TEST_F(PagePreloadsTest, WhatIsFetchedThePagesPlayerNeedNotAskFor) {
  preloads_.fetch({1});
  ASSERT_TRUE(isAskedSoon(1));
  ASSERT_TRUE(runMainLoopUntil(
      [&] { return server_.bytesSent() == static_cast<int64_t>(clip_.body.size()); },
      kTwentySeconds));
  const auto asset = AVAsset::assetWithURL(addressOf(1));
  std::atomic<bool> isLoaded{false};
  asset->loadValuesAsynchronouslyForKeys({"tracks"}, [&] { isLoaded = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return isLoaded.load(); }, kTwentySeconds));
  EXPECT_EQ(asset->tracks().size(), 2U);
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST(PagePreloads, OfAClipOnTwoPagesEndsWithTheLastOfThem) {
  RecordingPreloader preloader;
  PagePreloads preloads(preloader,
                        [](int) { return NSURL::URLWithString("http://a.example/clip"); });
  preloads.fetch({1, 2});
  preloader.calls.clear();
  preloads.keepOnly({2});
  EXPECT_TRUE(preloader.calls.empty());
  preloads.keepOnly({});
  EXPECT_EQ(preloader.calls, std::vector<std::string>{"cancel clip"});
}

}  // namespace
}  // namespace zaffo::feed
