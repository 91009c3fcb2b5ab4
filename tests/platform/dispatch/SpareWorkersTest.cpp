// SPDX-License-Identifier: Apache-2.0
#include "platform/dispatch/SpareWorkers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace zaffo {
namespace {

using std::chrono::milliseconds;

/// Counts the workers that are to be started.
struct Starts {
  int count = 0;
  bool succeed = true;
  [[nodiscard]] std::function<bool()> start() {
    return [this] { return ++count, succeed; };
  }
};

TEST(SpareWorkers, OneIsStartedForEachThatWaits) {
  Starts starts;
  SpareWorkers spares(10, milliseconds(1), starts.start());
  for (int i = 0; i < 3; ++i) spares.beginWait();
  EXPECT_EQ(starts.count, 3);
  EXPECT_EQ(spares.waiting(), 3);
  EXPECT_EQ(spares.spare(), 3);
}

TEST(SpareWorkers, OneThatIsTooManyStaysForTheNextWait) {
  Starts starts;
  SpareWorkers spares(10, milliseconds(1), starts.start());
  for (int i = 0; i < 5; ++i) {
    spares.beginWait();
    spares.endWait();
  }
  EXPECT_EQ(starts.count, 1);
  EXPECT_EQ(spares.waiting(), 0);
}

TEST(SpareWorkers, WhileNoneIsTooManyAllGoOn) {
  Starts starts;
  SpareWorkers spares(10, milliseconds(1), starts.start());
  EXPECT_TRUE(spares.mayGoOn());
  spares.beginWait();
  EXPECT_TRUE(spares.mayGoOn());
}

TEST(SpareWorkers, OneThatWasParkedForLongEnds) {
  Starts starts;
  SpareWorkers spares(10, milliseconds(5), starts.start());
  spares.beginWait();
  spares.endWait();
  EXPECT_FALSE(spares.mayGoOn());
  EXPECT_EQ(spares.spare(), 0);
  EXPECT_TRUE(spares.mayGoOn()) << "one was too many, not two";
}

TEST(SpareWorkers, AParkedOneIsCalledInsteadOfANewOne) {
  Starts starts;
  SpareWorkers spares(10, std::chrono::hours(1), starts.start());
  spares.beginWait();
  spares.endWait();
  bool wentOn = false;
  std::thread parked([&] { wentOn = spares.mayGoOn(); });
  // Before it parks, the wait finds it to be too many, and it never does.
  spares.beginWait();
  parked.join();
  EXPECT_TRUE(wentOn);
  EXPECT_EQ(starts.count, 1);
}

TEST(SpareWorkers, BeyondTheBoundAPlaceStaysEmptyUntilAWaitIsOver) {
  Starts starts;
  SpareWorkers spares(2, milliseconds(1), starts.start());
  for (int i = 0; i < 3; ++i) spares.beginWait();
  EXPECT_EQ(starts.count, 2);
  spares.endWait();
  EXPECT_TRUE(spares.mayGoOn()) << "it takes the empty place";
  spares.endWait();
  EXPECT_FALSE(spares.mayGoOn());
}

TEST(SpareWorkers, WhereNoneCanBeStartedThePlaceStaysEmpty) {
  Starts starts;
  starts.succeed = false;
  SpareWorkers spares(2, milliseconds(1), starts.start());
  spares.beginWait();
  EXPECT_EQ(spares.spare(), 0);
  spares.endWait();
  EXPECT_TRUE(spares.mayGoOn());
}

TEST(SpareWorkers, ParkedOnesEndWhenTheyAreStopped) {
  Starts starts;
  SpareWorkers spares(10, std::chrono::hours(1), starts.start());
  spares.beginWait();
  spares.endWait();
  bool wentOn = true;
  std::thread parked([&] { wentOn = spares.mayGoOn(); });
  spares.stop();
  parked.join();
  EXPECT_FALSE(wentOn);
}

}  // namespace
}  // namespace zaffo
