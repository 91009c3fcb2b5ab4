// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/KeyValueObservation.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zaffo {
namespace {

TEST(ObservableProperty, StartsWithItsInitialValue) {
  EXPECT_EQ(ObservableProperty<int>().get(), 0);
  EXPECT_EQ(ObservableProperty<std::string>("x").get(), "x");
}

TEST(ObservableProperty, TellsOldAndNewValueAfterTheChange) {
  ObservableProperty<int> property(1);
  std::vector<int> told;
  const auto observation = property.observe([&](int oldValue, int newValue) {
    told = {oldValue, newValue, property.get()};
  });
  EXPECT_TRUE(told.empty()) << "observing alone tells nothing";
  property.set(2);
  EXPECT_EQ(told, (std::vector<int>{1, 2, 2}));
}

TEST(ObservableProperty, TellsASetThatChangesNothing) {
  ObservableProperty<int> property(1);
  int told = 0;
  const auto observation = property.observe([&](int, int) { ++told; });
  property.set(1);
  EXPECT_EQ(told, 1);
}

TEST(ObservableProperty, TellsItsObserversInOrder) {
  ObservableProperty<int> property;
  std::string order;
  const auto first = property.observe([&](int, int) { order += 'a'; });
  const auto second = property.observe([&](int, int) { order += 'b'; });
  property.set(1);
  EXPECT_EQ(order, "ab");
}

TEST(KeyValueObservation, EndsWhenDestroyedOrInvalidated) {
  ObservableProperty<int> property;
  int told = 0;
  {
    const auto observation = property.observe([&](int, int) { ++told; });
    property.set(1);
  }
  property.set(2);
  EXPECT_EQ(told, 1);
  auto observation = property.observe([&](int, int) { ++told; });
  observation.invalidate();
  observation.invalidate();
  property.set(3);
  EXPECT_EQ(told, 1);
}

TEST(KeyValueObservation, LetsGoOfItsObserver) {
  ObservableProperty<int> property;
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> weakCaptured = captured;
  auto observation = property.observe([held = std::move(captured)](int, int) {});
  EXPECT_FALSE(weakCaptured.expired());
  observation.invalidate();
  EXPECT_TRUE(weakCaptured.expired());
}

TEST(KeyValueObservation, MovesWithoutEnding) {
  ObservableProperty<int> property;
  int first = 0, second = 0;
  auto observation = property.observe([&](int, int) { ++first; });
  KeyValueObservation moved(std::move(observation));
  property.set(1);
  EXPECT_EQ(first, 1);
  moved = property.observe([&](int, int) { ++second; });
  property.set(2);
  EXPECT_EQ(first, 1) << "what is assigned over has ended";
  EXPECT_EQ(second, 1);
}

TEST(KeyValueObservation, MayOutliveItsProperty) {
  auto property = std::make_optional<ObservableProperty<int>>(1);
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> weakCaptured = captured;
  auto observation = property->observe([held = std::move(captured)](int, int) {});
  property.reset();
  EXPECT_TRUE(weakCaptured.expired());
  observation.invalidate();
}

TEST(KeyValueObservation, MayEndInsideItsOwnObserver) {
  ObservableProperty<int> property;
  int told = 0;
  KeyValueObservation observation;
  auto captured = std::make_shared<int>(5);
  observation = property.observe([&, held = std::move(captured)](int, int) {
    observation.invalidate();
    told += *held;  // still there
  });
  property.set(1);
  property.set(2);
  EXPECT_EQ(told, 5);
}

TEST(KeyValueObservation, IsNotToldAnyMoreByASetUnderWayWhenItEnds) {
  ObservableProperty<int> property;
  int told = 0;
  KeyValueObservation second;
  const auto first = property.observe([&](int, int) { second.invalidate(); });
  second = property.observe([&](int, int) { ++told; });
  property.set(1);
  EXPECT_EQ(told, 0);
}

TEST(ObservableProperty, IsSetAndObservedFromManyThreads) {
  ObservableProperty<int> property;
  std::atomic<int> told{0};
  const auto observation = property.observe([&](int, int) { ++told; });
  constexpr int kThreads = 4, kSets = 500;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int value = 0; value < kSets; ++value) {
        const auto passing = property.observe([](int, int) {});
        property.set(value);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(told, kThreads * kSets);
}

}  // namespace
}  // namespace zaffo
