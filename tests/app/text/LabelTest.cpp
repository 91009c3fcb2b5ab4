// SPDX-License-Identifier: Apache-2.0
#include "text/Label.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "doubles/ManualTime.h"

namespace zaffo::feed {
namespace {

bool samePixels(const CGImage& a, const CGImage& b) {
  return a.width() == b.width() && a.height() == b.height() &&
         std::equal(a.pixels(), a.pixels() + static_cast<std::size_t>(a.height()) * a.stride(),
                    b.pixels());
}

class LabelTest : public testing::Test {
 protected:
  void SetUp() override {
    SystemFonts::shared().forget();
    if (!SystemFonts::askNow({U'花', false})) GTEST_SKIP() << "no font has Japanese letters";
    parent_->addSubview(label_);
    parent_->layoutIfNeeded();
  }
  bool shows(const std::string& text) {
    return samePixels(*label_->layer()->contents(), *renderText(text, style_, 1));
  }

  ManualTime time_;
  const TextStyle style_{.size = 18};
  /// Remembers that it was laid out.
  class Parent final : public UIView {
   public:
    Parent() : UIView(CGRectZero) {}
    void layoutSubviews() override { ++layouts; }
    int layouts = 0;
  };
  const std::shared_ptr<Parent> parent_ = std::make_shared<Parent>();
  const std::shared_ptr<Label> label_ = Label::create([] { return 1.0; });
};

TEST_F(LabelTest, WhatIsBuiltInNeedsNoFontOfTheSystem) {
  label_->setText("It cannot be played.", style_);
  EXPECT_TRUE(shows("It cannot be played."));
  time_.settle();
  EXPECT_EQ(SystemFonts::shared().answerTo({U'I', false}), nullptr) << "nobody asked";
}

TEST_F(LabelTest, FontsOfTheSystemAreAskedForElsewhereAndTheTextIsDrawnAgain) {
  label_->setText("花火", style_);
  EXPECT_FALSE(shows("花火")) << "the system was asked at once";
  const int layouts = parent_->layouts;
  time_.settle();
  EXPECT_TRUE(shows("花火"));
  parent_->layoutIfNeeded();
  EXPECT_EQ(parent_->layouts, layouts + 1) << "its size may be another one";
  EXPECT_EQ(label_->textSize().width, renderText("花火", style_, 1)->width());

  label_->setText("火花", style_);
  EXPECT_TRUE(shows("火花")) << "which is known by now";
}

TEST_F(LabelTest, ATextThatWasReplacedMeanwhileStays) {
  label_->setText("花", style_);
  label_->setText("short", style_);
  time_.settle();
  EXPECT_TRUE(shows("short"));
}

TEST_F(LabelTest, ALabelMayGoMeanwhile) {
  {
    const auto gone = Label::create([] { return 1.0; });
    gone->setText("花", style_);
  }
  time_.settle();
  EXPECT_NE(SystemFonts::shared().answerTo({U'花', false}), nullptr);
}

}  // namespace
}  // namespace zaffo::feed
