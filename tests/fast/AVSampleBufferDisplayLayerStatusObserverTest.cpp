// SPDX-License-Identifier: Apache-2.0
#include "fast/AVSampleBufferDisplayLayerStatusObserver.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "doubles/ScriptedDisplayLayer.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Status = AVQueuedSampleBufferRenderingStatus;

class StatusObserverTest : public testing::Test {
 protected:
  void listen() {
    observer->setStatusDidChange([this](Status status) { told.push_back(status); });
  }

  const std::shared_ptr<AVSampleBufferDisplayLayerStatusObserver> observer =
      AVSampleBufferDisplayLayerStatusObserver::create();
  const std::shared_ptr<ScriptedDisplayLayer> a = std::make_shared<ScriptedDisplayLayer>();
  const std::shared_ptr<ScriptedDisplayLayer> b = std::make_shared<ScriptedDisplayLayer>();
  std::vector<Status> told;
};

TEST_F(StatusObserverTest, StartsWithNothingToObserveAndNobodyToTell) {
  EXPECT_EQ(observer->sampleBufferDisplayerLayer(), nullptr);
  EXPECT_FALSE(observer->statusDidChange());
}

TEST_F(StatusObserverTest, ForwardsEachChangeAndNotTheFirstStatus) {
  listen();
  observer->setSampleBufferDisplayerLayer(a);
  EXPECT_THAT(told, IsEmpty());
  a->changeStatus(Status::Rendering);
  a->changeStatus(Status::Failed);
  EXPECT_THAT(told, ElementsAre(Status::Rendering, Status::Failed));
}

TEST_F(StatusObserverTest, MovesFromOneLayerToAnother) {
  listen();
  observer->setSampleBufferDisplayerLayer(a);
  observer->setSampleBufferDisplayerLayer(b);
  EXPECT_EQ(observer->sampleBufferDisplayerLayer(), b);
  a->changeStatus(Status::Failed);
  EXPECT_THAT(told, IsEmpty());
  b->changeStatus(Status::Rendering);
  EXPECT_THAT(told, ElementsAre(Status::Rendering));
}

TEST_F(StatusObserverTest, ObservesNothingOnceTheLayerIsNull) {
  listen();
  observer->setSampleBufferDisplayerLayer(a);
  observer->setSampleBufferDisplayerLayer(nullptr);
  a->changeStatus(Status::Failed);
  EXPECT_THAT(told, IsEmpty());
  EXPECT_EQ(a.use_count(), 1);
}

TEST_F(StatusObserverTest, AChangeWithNobodyToTellDoesNothing) {
  observer->setSampleBufferDisplayerLayer(a);
  a->changeStatus(Status::Failed);
  listen();
  EXPECT_THAT(told, IsEmpty());
  a->changeStatus(Status::Rendering);
  EXPECT_THAT(told, ElementsAre(Status::Rendering));
}

TEST_F(StatusObserverTest, IsCalledOnTheThreadOfTheChange) {
  std::thread::id where;
  observer->setStatusDidChange([&](Status) { where = std::this_thread::get_id(); });
  observer->setSampleBufferDisplayerLayer(a);
  std::thread changer([&] { a->changeStatus(Status::Failed); });
  const auto expected = changer.get_id();
  changer.join();
  EXPECT_EQ(where, expected);
}

TEST_F(StatusObserverTest, AReleasedObserverIsNotToldAnyMore) {
  auto short_lived = AVSampleBufferDisplayLayerStatusObserver::create();
  short_lived->setStatusDidChange([this](Status status) { told.push_back(status); });
  short_lived->setSampleBufferDisplayerLayer(a);
  short_lived.reset();
  a->changeStatus(Status::Failed);
  EXPECT_THAT(told, IsEmpty());
}

}  // namespace
}  // namespace zaffo
