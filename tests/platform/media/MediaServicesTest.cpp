// SPDX-License-Identifier: Apache-2.0
#include "platform/media/MediaServices.h"

#include <gtest/gtest.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <vector>

namespace zaffo::media {
namespace {

TEST(MediaServices, AResetBeginsAnotherGenerationAndTellsObserversInOrder) {
  MediaServices services;
  std::vector<uint64_t> told;
  const auto first = services.observeReset([&] { told.push_back(10 + services.generation()); });
  const auto second = services.observeReset([&] { told.push_back(20 + services.generation()); });
  services.reset();
  services.reset();
  EXPECT_EQ(told, (std::vector<uint64_t>{11, 21, 12, 22}));
}

TEST(MediaServices, ADroppedTokenIsNotCalledAnyMore) {
  MediaServices services;
  int calls = 0;
  auto token = services.observeReset([&] { ++calls; });
  token.reset();
  services.reset();
  EXPECT_EQ(calls, 0);
}

#if defined(__GLIBC__)
TEST(MediaServices, ObservationsThatHaveEndedLeaveNothingBehind) {
  MediaServices services;
  const auto observeManyTimes = [&services] {
    for (int i = 0; i < 10'000; ++i) (void)services.observeReset([] {});
    return mallinfo2().uordblks;
  };
  const auto before = observeManyTimes();
  EXPECT_LT(observeManyTimes(), before + 10'000);
}
#endif

TEST(MediaServices, AnObserverMayDropAnotherDuringAReset) {
  MediaServices services;
  int calls = 0;
  std::shared_ptr<void> second;
  const auto first = services.observeReset([&] { second.reset(); });
  second = services.observeReset([&] { ++calls; });
  services.reset();
  EXPECT_EQ(calls, 0);
}

TEST(MediaServices, AnObserverMayAddAnotherDuringAReset) {
  MediaServices services;
  int calls = 0;
  std::shared_ptr<void> added;
  const auto first = services.observeReset([&] {
    if (!added) added = services.observeReset([&] { ++calls; });
  });
  services.reset();
  EXPECT_EQ(calls, 0);
  services.reset();
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace zaffo::media
