// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/DisplayRequest.h"

#include <gtest/gtest.h>

#include <thread>

#include "doubles/ManualTime.h"

namespace zaffo {
namespace {

class DisplayRequestTest : public testing::Test {
 protected:
  DisplayRequestTest() {
    layer_->setDisplayRequestHandler([this] { ++asked_; });
  }

  ManualTime time_;
  int asked_ = 0;
  std::shared_ptr<CALayer> layer_ = CALayer::create();
  DisplayRequest request_;
  std::function<void()> ask_ = request_.forLayer(layer_);
};

TEST_F(DisplayRequestTest, AsksOnceBetweenTwoDraws) {
  for (int i = 0; i < 5; ++i) ask_();
  EXPECT_EQ(asked_, 0) << "on the main queue, not inside the call";
  time_.settle();
  EXPECT_EQ(asked_, 1);
  ask_();
  time_.settle();
  EXPECT_EQ(asked_, 1) << "nobody draws it";
  request_.noteDraw();
  ask_();
  time_.settle();
  EXPECT_EQ(asked_, 2);
}

TEST_F(DisplayRequestTest, AsksForNothingOnceTheLayerIsGone) {
  const std::weak_ptr<CALayer> weak = layer_;
  ask_();
  layer_.reset();
  EXPECT_TRUE(weak.expired());
  time_.settle();
  ask_();
  time_.settle();
}

TEST_F(DisplayRequestTest, MayBeAskedOnAnyThread) {
  std::thread first([this] { ask_(); }), second([this] { ask_(); });
  first.join();
  second.join();
  time_.settle();
  EXPECT_EQ(asked_, 1);
}

}  // namespace
}  // namespace zaffo
