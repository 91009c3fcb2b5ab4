#include "platform/network/Freshness.h"

#include <gtest/gtest.h>

#include <string>

namespace zaffo::network {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kNow = 1000 * kSecond;

Freshness after(const std::string& lines) {
  HttpHead head;
  head.addLine("HTTP/1.1 200 OK\r\n");
  for (std::size_t at = 0; at < lines.size();) {
    const auto end = std::min(lines.find('\n', at), lines.size());
    head.addLine(lines.substr(at, end - at));
    at = end + 1;
  }
  Freshness freshness;
  freshness.learn(head, kNow);
  return freshness;
}

/// Seconds for which it is fresh, as far as whole ones tell.
int64_t secondsOf(const Freshness& freshness) {
  for (const int64_t seconds : {0, 7, 53, 60, 300, 3600}) {
    if (!freshness.isFresh(kNow + seconds * kSecond)) return seconds;
    if (!freshness.isFresh(kNow + (seconds + 1) * kSecond)) return seconds + 1;
  }
  return -1;
}

TEST(FreshnessTest, IsNoneBeforeAnAnswer) {
  EXPECT_FALSE(Freshness().mayKeep());
  EXPECT_FALSE(Freshness().isFresh(0));
}

TEST(FreshnessTest, IsFiveMinutesUnlessTheServerSaysOtherwise) {
  EXPECT_TRUE(after("").mayKeep());
  EXPECT_TRUE(after("").isFresh(kNow + 299 * kSecond));
  EXPECT_FALSE(after("").isFresh(kNow + 300 * kSecond));
  EXPECT_FALSE(after("Cache-Control: private, max-age=x").isFresh(kNow + 300 * kSecond));
}

TEST(FreshnessTest, IsWhatTheServerSaysLessTheTimeInCaches) {
  EXPECT_EQ(secondsOf(after("Cache-Control: public, Max-Age=60")), 60);
  EXPECT_EQ(secondsOf(after("Cache-Control: max-age=\"60\"")), 60);
  EXPECT_EQ(secondsOf(after("Cache-Control: max-age=60\nAge: 53")), 7);
  EXPECT_EQ(secondsOf(after("Cache-Control: max-age=60\nAge: 99")), 0);
  EXPECT_TRUE(after("Cache-Control: max-age=9223372036854775807").isFresh(kNow + 3600 * kSecond));
}

TEST(FreshnessTest, IsNoneWhereTheServerWantsToBeAsked) {
  const auto freshness = after("Cache-Control: max-age=60, no-cache");
  EXPECT_TRUE(freshness.mayKeep());
  EXPECT_FALSE(freshness.isFresh(kNow));
}

TEST(FreshnessTest, IsNoneOfWhatMayNotBeKeptWhicheverLineSaysSo) {
  const auto freshness = after("Cache-Control: max-age=60\nCache-Control: No-Store");
  EXPECT_FALSE(freshness.mayKeep());
  EXPECT_FALSE(freshness.isFresh(kNow));
}

}  // namespace
}  // namespace zaffo::network
