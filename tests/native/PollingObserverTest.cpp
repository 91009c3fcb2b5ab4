// SPDX-License-Identifier: Apache-2.0
#include "native/PollingObserver.h"

#include <gmock/gmock.h>

#include <vector>

#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

using testing::ElementsAre;

constexpr int64_t kInterval = kNanosecondsPerSecond / 10;

class PollingObserverTest : public testing::Test {
 protected:
  std::shared_ptr<PollingObserver<int>> make() {
    return PollingObserver<int>::create(
        0.1,
        [this] {
          ++reads;
          return value;
        },
        [this](int newValue) {
          told.push_back(newValue);
          if (onChanged) onChanged();
        });
  }

  ManualTime time;
  int value = 7;
  int reads = 0;
  std::vector<int> told;
  std::function<void()> onChanged;
  std::shared_ptr<PollingObserver<int>> observer = make();
};

TEST_F(PollingObserverTest, DoesNothingUntilItIsStarted) {
  time.advance(10 * kInterval);
  EXPECT_EQ(reads, 0);
}

TEST_F(PollingObserverTest, TellsAConstantOnceInsideTheStart) {
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(7));
  EXPECT_EQ(reads, 1);
  time.advance(10 * kInterval);
  EXPECT_THAT(told, ElementsAre(7));
  EXPECT_EQ(reads, 11);
}

TEST_F(PollingObserverTest, ReadsOnceAnInterval) {
  observer->startObserving();
  time.advance(kInterval - 1);
  EXPECT_EQ(reads, 1);
  time.advance(1);
  EXPECT_EQ(reads, 2);
}

TEST_F(PollingObserverTest, TellsEachChangeOnce) {
  observer->startObserving();
  value = 8;
  time.advance(3 * kInterval);
  value = 7;
  time.advance(kInterval);
  EXPECT_THAT(told, ElementsAre(7, 8, 7));
}

TEST_F(PollingObserverTest, AFirstValueEqualToADefaultOneIsTold) {
  value = 0;
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(0));
}

TEST_F(PollingObserverTest, ASecondStartReadsAgainButAddsNoTimer) {
  observer->startObserving();
  observer->startObserving();
  EXPECT_EQ(reads, 2);
  EXPECT_THAT(told, ElementsAre(7));
  value = 8;
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(7, 8));
  time.advance(kInterval);
  EXPECT_EQ(reads, 4);
  observer->stopObserving();
  time.advance(kInterval);
  EXPECT_EQ(reads, 4);
}

TEST_F(PollingObserverTest, ReadsNoMoreAfterTheStop) {
  observer->startObserving();
  observer->stopObserving();
  observer->stopObserving();
  time.advance(10 * kInterval);
  EXPECT_EQ(reads, 1);
}

TEST_F(PollingObserverTest, ReadsNoMoreAfterItsEnd) {
  observer->startObserving();
  EXPECT_EQ(observer.use_count(), 1) << "its timer does not keep it alive";
  EXPECT_TRUE(time.hasTimer());
  observer.reset();
  time.advance(10 * kInterval);
  EXPECT_EQ(reads, 1);
  EXPECT_FALSE(time.hasTimer()) << "its timer has ended with it";
}

TEST_F(PollingObserverTest, ARestartTellsOnlyAChange) {
  observer->startObserving();
  observer->stopObserving();
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(7));
  observer->stopObserving();
  value = 8;
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(7, 8));
  time.advance(kInterval);
  EXPECT_EQ(reads, 4) << "the restart has a timer again";
}

TEST_F(PollingObserverTest, MayBeStoppedByItsHandler) {
  onChanged = [this] { observer->stopObserving(); };
  observer->startObserving();
  time.advance(10 * kInterval);
  EXPECT_EQ(reads, 1);
}

TEST_F(PollingObserverTest, MayBeLetGoOfByItsHandlerInsideTheStart) {
  onChanged = [this] { observer.reset(); };
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(7));
  time.advance(10 * kInterval);
  EXPECT_EQ(reads, 1);
}

TEST_F(PollingObserverTest, MayBeLetGoOfByItsHandlerInATick) {
  observer->startObserving();
  onChanged = [this] { observer.reset(); };
  value = 8;
  time.advance(10 * kInterval);
  EXPECT_THAT(told, ElementsAre(7, 8));
  EXPECT_EQ(reads, 2);
}

TEST_F(PollingObserverTest, AHandlerThatComesBackSeesNoChange) {
  onChanged = [this] { observer->startObserving(); };
  observer->startObserving();
  EXPECT_THAT(told, ElementsAre(7));
  EXPECT_EQ(reads, 2);
}

TEST_F(PollingObserverTest, IsStartedAndStoppedWithoutKnowledgeOfItsType) {
  const std::shared_ptr<PollingObserverType> plain = observer;
  plain->startObserving();
  EXPECT_EQ(reads, 1);
  plain->stopObserving();
  time.advance(kInterval);
  EXPECT_EQ(reads, 1);
}

}  // namespace
}  // namespace zaffo
