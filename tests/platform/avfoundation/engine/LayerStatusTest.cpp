// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/LayerStatus.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Status = AVQueuedSampleBufferRenderingStatus;

class LayerStatusTest : public testing::Test {
 protected:
  void change(Status status) {
    present_ = status;
    status_->noteChange();
  }
  KeyValueObservation record() {
    return status_->observe([this] { told_.push_back(status_->told()); });
  }
  /// The first sample came long ago.
  void open() {
    status_->noteSample();
    time_.settle();
  }

  ManualTime time_;
  std::atomic<Status> present_ = Status::Unknown;
  std::shared_ptr<LayerStatus> status_ = LayerStatus::create([this] { return present_.load(); });
  std::vector<Status> told_;
};

TEST_F(LayerStatusTest, WhoeverIsSetInTheNextBlockOfTheMainQueueIsToldOnceWhatHappenedBefore) {
  KeyValueObservation observation;
  dispatch_async(dispatch_get_main_queue(), [&] {
    status_->noteSample();
    change(Status::Rendering);
    change(Status::Failed);
    dispatch_async(dispatch_get_main_queue(), [&] { observation = record(); });
  });
  MainLoop::runTurn();
  MainLoop::runTurn();
  EXPECT_THAT(told_, IsEmpty());
  EXPECT_EQ(status_->told(), Status::Unknown) << "as it was told";
  time_.settle();
  EXPECT_THAT(told_, ElementsAre(Status::Rendering, Status::Failed));
}

TEST_F(LayerStatusTest, BeforeAnySampleNothingIsTold) {
  const auto observation = record();
  change(Status::Failed);
  time_.settle();
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(LayerStatusTest, LaterChangesAreToldAtOnce) {
  open();
  const auto observation = record();
  status_->noteSample();
  change(Status::Failed);
  EXPECT_THAT(told_, ElementsAre(Status::Failed));
}

TEST_F(LayerStatusTest, WhatIsNotedTwiceIsToldOnce) {
  open();
  const auto observation = record();
  change(Status::Failed);
  status_->noteChange();
  EXPECT_THAT(told_, ElementsAre(Status::Failed));
}

TEST_F(LayerStatusTest, AChangeWhileOneIsBeingToldIsToldAfterIt) {
  open();
  const auto first = status_->observe([this] {
    if (status_->told() == Status::Rendering) change(Status::Failed);
  });
  const auto second = record();
  change(Status::Rendering);
  EXPECT_THAT(told_, ElementsAre(Status::Rendering, Status::Failed));
}

TEST_F(LayerStatusTest, AChangeOnAnotherThreadWhileOneIsBeingToldIsToldAfterItAndOnce) {
  open();
  const auto first = status_->observe([this] {
    if (status_->told() != Status::Rendering) return;
    std::thread([this] { change(Status::Failed); }).join();
    EXPECT_EQ(status_->told(), Status::Rendering) << "until that has been told to all";
  });
  const auto second = record();
  change(Status::Rendering);
  EXPECT_THAT(told_, ElementsAre(Status::Rendering, Status::Failed));
}

TEST_F(LayerStatusTest, NothingIsToldOnceItIsGone) {
  const auto observation = record();
  status_->noteSample();
  change(Status::Failed);
  status_ = nullptr;
  time_.settle();
  EXPECT_THAT(told_, IsEmpty());
}

}  // namespace
}  // namespace zaffo
