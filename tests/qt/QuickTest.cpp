// SPDX-License-Identifier: Apache-2.0
#include <ZaffoQt/ZaffoClip.h>

#include <QtQml/QQmlComponent>
#include <QtQml/QQmlEngine>
#include <QtQuick/QQuickItem>
#include <QtQuick/QQuickWindow>

#include <memory>
#include <string>

#include "QtTestSupport.h"

namespace zaffo::test {
namespace {

/// Items of QML in a window. Without a driver for OpenGL the window is drawn by software.
class QuickTest : public QtTest {
 protected:
  QuickTest() {
    engine_.addImportPath(ZAFFO_TEST_QML);
    window_->setColor(Qt::blue);
  }

  /// What `qml` says, as large as the window.
  QQuickItem* show(const QByteArray& qml, int width, int height) {
    QQmlComponent component(&engine_);
    component.setData("import QtQuick\nimport Zaffo\n" + qml, QUrl("file:///feed.qml"));
    item_.reset(qobject_cast<QQuickItem*>(component.create()));
    EXPECT_TRUE(item_) << component.errorString().toStdString();
    window_->resize(width, height);
    if (!item_) return nullptr;
    item_->setSize(QSizeF(width, height));
    item_->setParentItem(window_->contentItem());
    window_->show();
    settle();
    return item_.get();
  }
  QQuickItem* showClip(const std::string& name, int width, int height, const char* more = "") {
    const QByteArray source = urlOf(name).toString().toUtf8();
    return show("ZaffoVideo { loop: false; source: \"" + source + "\"; " + more + " }", width,
                height);
  }
  QImage drawn() {
    settle();
    return window_->grabWindow();
  }
  [[nodiscard]] int statusOf(const QObject* item) { return item->property("status").toInt(); }
  [[nodiscard]] static bool hasPicture(const QObject* item) {
    return item->property("hasPicture").toBool();
  }

  QQmlEngine engine_;
  std::unique_ptr<QQuickWindow> window_ = std::make_unique<QQuickWindow>();
  std::unique_ptr<QQuickItem> item_;
};

TEST_F(QuickTest, EveryPictureIsDrawn) {
  showClip("video_only.mp4", 192, 108);
  EXPECT_EQ(numberIn(drawn()), 0);
  for (int frame = 1; frame < 60; ++frame) {
    advance(kFrame + kNanosecondsPerMillisecond / 100);
    EXPECT_EQ(numberIn(drawn()), frame);
  }
}

TEST_F(QuickTest, ThePictureKeepsItsProportions) {
  showClip("video_only.mp4", 400, 108);
  EXPECT_EQ(item_->implicitWidth(), 192);
  EXPECT_EQ(item_->implicitHeight(), 108);
  const QImage image = drawn();
  EXPECT_EQ(image.pixel(100, 13), qRgb(0, 0, 255)) << "left of it nothing is drawn";
  EXPECT_GT(qGreen(image.pixel(108, 13)), 200);
  EXPECT_LT(qGreen(image.pixel(128, 13)), 50);
  EXPECT_EQ(image.pixel(300, 13), qRgb(0, 0, 255));
  item_->setProperty("fillMode", 0);
  EXPECT_GT(qGreen(drawn().pixel(13, 13)), 200) << "stretched";
}

/// Whatever Qt is told must come out as what this library's own conversion makes of it, but for how
/// chroma is interpolated. All in one window, whose shaders are not made anew.
TEST_F(QuickTest, ColoursTurnsAndShapesAreThoseOfThePicture) {
  for (const char* name :
       {"color_bt601.mp4", "color_bt601_full.mp4", "color_bt709.mp4", "color_bt709_full.mp4",
        "waves_160x128_bt2020.mp4", "waves_160x128_full.mp4", "hevc_10bit.mp4", "rotated_90.mp4",
        "rotated_180.mp4", "rotated_270.mp4", "anamorphic.mp4", "odd_size.webm", "h264_444.mp4",
        "waves_160x128_422.mp4", "waves_162x130_h264.mp4", "vp9_10bit.webm"}) {
    ZaffoClip clip;
    clip.setLooping(false);
    clip.setSource(urlOf(name));
    settle();
    const QSize size = clip.pictureSize().toSize();
    clip.pause();
    const QImage expected = clip.image(size);
    clip.setActive(false);
    showClip(name, size.width(), size.height(), "playing: false");
    const QImage seen = drawn();
    EXPECT_LT(meanDifference(seen, expected), 4) << name;
    EXPECT_GT(meanDifference(seen.mirrored(true, false), expected), 5) << name << " is no test";
  }
}

TEST_F(QuickTest, APageMayBeReused) {
  showClip("rotated_90.mp4", 192, 108);
  item_->setProperty("source", urlOf("video_only.mp4"));
  EXPECT_EQ(window_->grabWindow().pixel(186, 6), qRgb(0, 0, 255))
      << "nothing is left of the former clip";
  settle();
  advance(7 * kFrame + kNanosecondsPerMillisecond);
  EXPECT_EQ(numberIn(drawn()), 7);
}

TEST_F(QuickTest, WhatCannotBeSeenHasNoPlayerAndWakesNobody) {
  const auto expectNone = [&] {
    settle();
    advance(kNanosecondsPerSecond);
    EXPECT_FALSE(hasPicture(item_.get()));
    EXPECT_EQ(statusOf(item_.get()), ZaffoClip::Idle);
    EXPECT_FALSE(time_.hasTimer()) << "something still plays";
  };
  showClip("video_only.mp4", 192, 108);
  EXPECT_TRUE(hasPicture(item_.get()));
  item_->setVisible(false);
  expectNone();
  item_->setVisible(true);
  settle();
  EXPECT_EQ(numberIn(drawn()), 0) << "it begins anew";
  window_->hide();
  expectNone();
  window_->show();
  settle();
  EXPECT_TRUE(hasPicture(item_.get()));
  item_->setProperty("active", false);
  expectNone();
}

TEST_F(QuickTest, AnItemMayGoWhileItPlays) {
  showClip("h264_30.mp4", 192, 108);
  advance(10 * kFrame);
  EXPECT_TRUE(hasPicture(item_.get()));
  item_.reset();
  EXPECT_EQ(drawn().pixel(8, 13), qRgb(0, 0, 255));
  advance(kNanosecondsPerSecond);
  EXPECT_FALSE(time_.hasTimer()) << "something still plays";
}

TEST_F(QuickTest, TheWindowMayGoFirst) {
  showClip("h264_30.mp4", 192, 108);
  item_->setParent(nullptr);
  window_.reset();
  settle();
  advance(kNanosecondsPerSecond);
  EXPECT_FALSE(hasPicture(item_.get()));
  EXPECT_FALSE(time_.hasTimer()) << "something still plays";
}

TEST_F(QuickTest, QmlSaysWhatIsWrong) {
  QQuickItem* const item = show(
      "ZaffoVideo { property string told; source: 'file:///no such folder/missing.mp4';"
      " onStatusChanged: if (status === ZaffoClip.Failed) told = error }",
      192, 108);
  EXPECT_NE(item->property("told").toString().indexOf("missing.mp4"), -1);
}

TEST_F(QuickTest, QmlSteersIt) {
  showClip("video_only.mp4", 192, 108, "playing: false; muted: true; volume: 0.5");
  QMetaObject::invokeMethod(item_.get(), "seek", Q_ARG(QVariant, 40.5 / 30));
  settle();
  EXPECT_EQ(numberIn(drawn()), 40);
  QMetaObject::invokeMethod(item_.get(), "play");
  EXPECT_TRUE(item_->property("playing").toBool());
  advance(5 * kFrame);
  EXPECT_EQ(numberIn(drawn()), 45);
}

}  // namespace
}  // namespace zaffo::test
