// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Throughput.h"

#include <gtest/gtest.h>

namespace zaffo::network {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kMegabyte = 1'000'000;

/// So many bytes in each second, in tenths.
void receive(Throughput& throughput, int64_t& now, int seconds, int64_t bytesASecond) {
  for (int i = 0; i < seconds * 10; ++i) {
    now += kSecond / 10;
    throughput.receive(bytesASecond / 10, now);
  }
}

TEST(Throughput, IsUnknownUntilEnoughCame) {
  Throughput throughput;
  EXPECT_EQ(throughput.bitsPerSecond(), std::nullopt);
  throughput.begin(0);
  throughput.receive(1000, kSecond);
  EXPECT_EQ(throughput.bitsPerSecond(), std::nullopt);
}

TEST(Throughput, IsWhatComesInTheTimeOfTransfersAlone) {
  Throughput throughput;
  int64_t now = 0;
  for (int i = 0; i < 4; ++i) {
    throughput.begin(now);
    receive(throughput, now, 1, kMegabyte);
    throughput.end(now);
    now += 60 * kSecond;  // nothing is asked for meanwhile
  }
  EXPECT_NEAR(*throughput.bitsPerSecond(), 8e6, 1);
}

TEST(Throughput, SumsTransfersThatRunAtOnce) {
  Throughput throughput;
  int64_t now = 0;
  throughput.begin(now);
  throughput.begin(now);
  receive(throughput, now, 1, kMegabyte);
  throughput.end(now);
  receive(throughput, now, 1, kMegabyte);
  throughput.end(now);
  EXPECT_NEAR(*throughput.bitsPerSecond(), 8e6, 1);
}

TEST(Throughput, FallsAtOnceAndRisesSlowly) {
  Throughput falling;
  int64_t now = 0;
  falling.begin(now);
  receive(falling, now, 20, kMegabyte);
  receive(falling, now, 4, kMegabyte / 10);
  EXPECT_LT(*falling.bitsPerSecond(), 3e6);

  Throughput rising;
  now = 0;
  rising.begin(now);
  receive(rising, now, 20, kMegabyte / 10);
  receive(rising, now, 4, kMegabyte);
  EXPECT_GT(*rising.bitsPerSecond(), 1.5e6);
  EXPECT_LT(*rising.bitsPerSecond(), 4e6);
}

}  // namespace
}  // namespace zaffo::network
