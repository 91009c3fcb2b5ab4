// SPDX-License-Identifier: Apache-2.0
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

/// Whether it is fresh for so many seconds, and not for longer.
bool lasts(const Freshness& freshness, int64_t seconds) {
  const bool isFresh = seconds == 0 || freshness.isFresh(kNow + seconds * kSecond - 1);
  return isFresh && !freshness.isFresh(kNow + seconds * kSecond);
}

TEST(FreshnessTest, IsNoneBeforeAnAnswer) {
  EXPECT_FALSE(Freshness().mayKeep());
  EXPECT_FALSE(Freshness().isFresh(0));
}

TEST(FreshnessTest, IsFiveMinutesUnlessTheServerSaysOtherwise) {
  EXPECT_TRUE(after("").mayKeep());
  EXPECT_TRUE(lasts(after(""), 300));
  EXPECT_TRUE(lasts(after("Cache-Control: private, max-age=x"), 300));
}

TEST(FreshnessTest, IsWhatTheServerSaysLessTheTimeInCaches) {
  EXPECT_TRUE(lasts(after("Cache-Control: public, Max-Age=60"), 60));
  EXPECT_TRUE(lasts(after("Cache-Control: max-age=\"60\""), 60));
  EXPECT_TRUE(lasts(after("Cache-Control: max-age=60\nAge: 53"), 7));
  EXPECT_TRUE(lasts(after("Cache-Control: max-age=60\nAge: 99"), 0));
  EXPECT_TRUE(lasts(after("Cache-Control: max-age=60\nAge: 99999999999999999999"), 0));
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
