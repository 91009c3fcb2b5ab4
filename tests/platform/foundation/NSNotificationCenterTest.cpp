// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSNotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace zaffo {
namespace {

/// An observer that unregisters in its destructor, as the contract's `this` allows.
class Listener {
 public:
  explicit Listener(NSNotificationCenter& center) : center_(center) {}
  ~Listener() { center_.removeObserver(this); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

 private:
  NSNotificationCenter& center_;
};

class NSNotificationCenterTest : public testing::Test {
 protected:
  NSNotificationCenter::Handler note(char letter) {
    return [this, letter](const NSNotification&) { heard_ += letter; };
  }

  NSNotificationCenter center_;
  std::string heard_;
  const std::shared_ptr<int> observer_ = std::make_shared<int>();
  const std::shared_ptr<const int> item_ = std::make_shared<const int>();
};

TEST_F(NSNotificationCenterTest, DeliversByName) {
  center_.addObserver(observer_, "ended", nullptr, note('e'));
  center_.addObserver(observer_, "failed", nullptr, note('f'));
  center_.postNotification("ended");
  center_.postNotification("unheard");
  EXPECT_EQ(heard_, "e");
}

TEST_F(NSNotificationCenterTest, DeliversByObject) {
  const auto other = std::make_shared<const int>();
  center_.addObserver(observer_, "ended", item_, note('1'));
  center_.addObserver(observer_, "ended", other, note('2'));
  center_.addObserver(observer_, "ended", nullptr, note('*'));
  center_.postNotification("ended", item_);
  EXPECT_EQ(heard_, "1*");
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "1**") << "without an object only those of any object hear it";
}

TEST_F(NSNotificationCenterTest, TellsNameAndObject) {
  NSNotification told;
  center_.addObserver(observer_, "ended", nullptr, [&](const NSNotification& n) { told = n; });
  center_.postNotification("ended", item_);
  EXPECT_EQ(told.name, "ended");
  EXPECT_EQ(told.object, item_);
}

TEST_F(NSNotificationCenterTest, DeliversInOrderOfRegistrationBeforeThePostReturns) {
  for (const char letter : {'a', 'b', 'c'}) {
    center_.addObserver(observer_, "ended", nullptr, note(letter));
  }
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "abc");
}

TEST_F(NSNotificationCenterTest, HoldsObserverAndObjectWeakly) {
  auto observer = std::make_shared<int>();
  auto object = std::make_shared<int>();
  const std::weak_ptr<int> weakObserver = observer, weakObject = object;
  center_.addObserver(observer, "ended", object, note('x'));
  observer.reset();
  object.reset();
  EXPECT_TRUE(weakObserver.expired());
  EXPECT_TRUE(weakObject.expired());
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "");
}

TEST_F(NSNotificationCenterTest, DoesNotTakeALaterObjectOfTheSameAddressForTheEarlierOne) {
  int place = 0;
  const auto objectInPlace = [&] { return std::shared_ptr<int>(&place, [](int*) {}); };
  {
    const auto earlier = objectInPlace();
    center_.addObserver(observer_, "ended", earlier, note('e'));
  }
  center_.postNotification("ended", objectInPlace());
  EXPECT_EQ(heard_, "");
}

TEST_F(NSNotificationCenterTest, LetsGoOfHandlersOfObserversThatAreGone) {
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> weakCaptured = captured;
  auto observer = std::make_shared<int>();
  center_.addObserver(observer, "ended", nullptr,
                      [held = std::move(captured)](const NSNotification&) {});
  observer.reset();
  center_.addObserver(observer_, "other", nullptr, note('o'));
  EXPECT_TRUE(weakCaptured.expired());
}

TEST_F(NSNotificationCenterTest, KeepsTheObserverAliveDuringADelivery) {
  auto observer = std::make_shared<int>(1);
  const std::weak_ptr<int> weakObserver = observer;
  bool aliveInside = false;
  center_.addObserver(observer, "ended", nullptr, [&](const NSNotification&) {
    observer.reset();
    aliveInside = !weakObserver.expired();
  });
  center_.postNotification("ended");
  EXPECT_TRUE(aliveInside);
  EXPECT_TRUE(weakObserver.expired());
}

TEST_F(NSNotificationCenterTest, RemovesEveryRegistrationOfAnObserver) {
  center_.addObserver(observer_, "ended", nullptr, note('a'));
  center_.addObserver(observer_, "failed", item_, note('b'));
  const auto staying = std::make_shared<int>();
  center_.addObserver(staying, "ended", nullptr, note('s'));
  center_.removeObserver(observer_.get());
  center_.removeObserver(observer_.get());
  center_.postNotification("ended");
  center_.postNotification("failed", item_);
  EXPECT_EQ(heard_, "s");
}

TEST_F(NSNotificationCenterTest, AnObserverMayRemoveAnotherDuringADelivery) {
  const auto other = std::make_shared<int>();
  center_.addObserver(observer_, "ended", nullptr, [&](const NSNotification&) {
    heard_ += 'a';
    center_.removeObserver(other.get());
  });
  center_.addObserver(other, "ended", nullptr, note('b'));
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "a");
}

TEST_F(NSNotificationCenterTest, AnObserverMayRemoveItselfDuringADelivery) {
  center_.addObserver(observer_, "ended", nullptr, [&](const NSNotification&) {
    heard_ += 'a';
    center_.removeObserver(observer_.get());
  });
  center_.postNotification("ended");
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "a");
}

TEST_F(NSNotificationCenterTest, AnObserverAddedDuringADeliveryHearsFromTheNextOne) {
  center_.addObserver(observer_, "ended", nullptr, [&](const NSNotification&) {
    if (heard_.empty()) center_.addObserver(observer_, "ended", nullptr, note('n'));
    heard_ += 'a';
  });
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "a");
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "aan");
}

TEST_F(NSNotificationCenterTest, ADeliveryMayPostAgain) {
  center_.addObserver(observer_, "inner", nullptr, note('i'));
  center_.addObserver(observer_, "outer", nullptr, [&](const NSNotification&) {
    heard_ += '(';
    center_.postNotification("inner");
    heard_ += ')';
  });
  center_.postNotification("outer");
  EXPECT_EQ(heard_, "(i)");
}

TEST_F(NSNotificationCenterTest, ADestructorMayRemoveItsObject) {
  auto listener = std::make_shared<Listener>(center_);
  center_.addObserver(listener, "ended", nullptr, note('l'));
  center_.postNotification("ended");
  listener.reset();
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "l");
}

TEST_F(NSNotificationCenterTest, IgnoresAnObserverThatIsGoneAndAnEmptyHandler) {
  center_.addObserver(std::weak_ptr<void>(), "ended", nullptr, note('g'));
  center_.addObserver(observer_, "ended", nullptr, nullptr);
  center_.postNotification("ended");
  EXPECT_EQ(heard_, "");
}

TEST_F(NSNotificationCenterTest, TheDefaultCenterIsOne) {
  EXPECT_EQ(&NSNotificationCenter::defaultCenter(), &NSNotificationCenter::defaultCenter());
}

TEST_F(NSNotificationCenterTest, IsPostedToAndChangedFromManyThreads) {
  std::atomic<int> heard{0};
  center_.addObserver(observer_, "tick", nullptr, [&](const NSNotification&) { ++heard; });
  constexpr int kThreads = 4, kPosts = 500;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int post = 0; post < kPosts; ++post) {
        const auto passing = std::make_shared<Listener>(center_);
        center_.addObserver(passing, "tick", nullptr, [](const NSNotification&) {});
        center_.postNotification("tick");
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(heard, kThreads * kPosts);
}

}  // namespace
}  // namespace zaffo
