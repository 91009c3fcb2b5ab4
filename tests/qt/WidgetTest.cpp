// SPDX-License-Identifier: Apache-2.0
#include <ZaffoQt/ZaffoVideoWidget.h>

#include <QtCore/QPointer>
#include <QtWidgets/QStackedWidget>

#include <memory>

#include "QtTestSupport.h"

namespace zaffo::test {
namespace {

class WidgetTest : public QtTest {
 protected:
  /// A clip that plays once in a window of that size, with its first picture.
  ZaffoVideoWidget* show(const char* name, int width, int height) {
    widget_ = std::make_unique<ZaffoVideoWidget>();
    widget_->clip()->setLooping(false);
    widget_->setSource(urlOf(name));
    widget_->setStyleSheet("background: #00f");
    widget_->resize(width, height);
    EXPECT_EQ(widget_->clip()->status(), ZaffoClip::Idle);
    widget_->show();
    settle();
    return widget_.get();
  }
  QImage drawn() { return widget_->grab().toImage(); }

  std::unique_ptr<ZaffoVideoWidget> widget_;
};

TEST_F(WidgetTest, EveryPictureIsDrawn) {
  show("video_only.mp4", 192, 108);
  EXPECT_EQ(numberIn(drawn()), 0);
  for (int frame = 1; frame < 60; ++frame) {
    advance(kFrame + kNanosecondsPerMillisecond / 100);
    EXPECT_EQ(numberIn(drawn()), frame);
  }
}

TEST_F(WidgetTest, ThePictureKeepsItsProportions) {
  show("video_only.mp4", 400, 108);
  EXPECT_EQ(widget_->sizeHint(), QSize(192, 108));
  const QImage image = drawn();
  EXPECT_EQ(image.pixel(100, 13), qRgb(0, 0, 255)) << "left of it is the background";
  EXPECT_GT(qGreen(image.pixel(108, 13)), 200);
  EXPECT_LT(qGreen(image.pixel(128, 13)), 50);
  EXPECT_EQ(image.pixel(300, 13), qRgb(0, 0, 255));
}

TEST_F(WidgetTest, PicturesStandUpright) {
  show("rotated_90.mp4", 256, 144);
  const QImage image = drawn();
  // The row of blocks is on the right, and begins at the top.
  EXPECT_GT(qGreen(image.pixel(240, 6)), 200);
  EXPECT_LT(qGreen(image.pixel(240, 18)), 50);
}

TEST_F(WidgetTest, OnlyThePageInViewHasAPlayer) {
  QStackedWidget pages;
  auto* first = new ZaffoVideoWidget(urlOf("video_only.mp4"));
  auto* second = new ZaffoVideoWidget(urlOf("portrait.mp4"));
  pages.addWidget(first);
  pages.addWidget(second);
  pages.show();
  settle();
  EXPECT_TRUE(first->clip()->hasPicture());
  EXPECT_EQ(second->clip()->status(), ZaffoClip::Idle);
  pages.setCurrentIndex(1);
  settle();
  EXPECT_EQ(first->clip()->status(), ZaffoClip::Idle);
  EXPECT_TRUE(second->clip()->hasPicture());
  pages.hide();
  settle();
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(second->clip()->status(), ZaffoClip::Idle);
  EXPECT_FALSE(time_.hasTimer()) << "something still plays";
}

TEST_F(WidgetTest, AWidgetMayGoWhileItPlays) {
  show("h264_30.mp4", 192, 108);
  advance(10 * kFrame);
  const QPointer<ZaffoClip> clip = widget_->clip();
  widget_.reset();
  EXPECT_FALSE(clip);
  settle();
  advance(kNanosecondsPerSecond);
  EXPECT_FALSE(time_.hasTimer()) << "something still plays";
}

TEST_F(WidgetTest, APageMayBeReused) {
  show("h264_30.mp4", 192, 108);
  widget_->setSource(urlOf("video_only.mp4"));
  EXPECT_EQ(drawn().pixel(8, 13), qRgb(0, 0, 255)) << "nothing is left of the former clip";
  settle();
  advance(7 * kFrame + kNanosecondsPerMillisecond);
  EXPECT_EQ(numberIn(drawn()), 7);
}

}  // namespace
}  // namespace zaffo::test
