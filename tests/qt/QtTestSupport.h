// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ZaffoPlayback/zaffo.h>
#include <gtest/gtest.h>

#include <QtCore/QUrl>
#include <QtGui/QImage>
#include <QtWidgets/QApplication>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/window/VirtualDisplay.h"

namespace zaffo::test {

constexpr int64_t kFrame = kNanosecondsPerSecond / 30;

inline QUrl urlOf(const std::string& name) {
  return QUrl::fromLocalFile(QString::fromStdString(clip(name)));
}

/// The number in a picture that stands as it was coded, -1 when there is none.
inline int numberIn(const QImage& image) {
  return readFrameNumber(image.width(), image.height(),
                         [&](int x, int y) -> double { return qGreen(image.pixel(x, y)); })
      .value_or(-1);
}

/// How far two pictures of one size lie apart: the mean over all samples of all pixels, 0 to 255.
inline double meanDifference(const QImage& one, const QImage& other) {
  EXPECT_EQ(one.width(), other.width());
  EXPECT_EQ(one.height(), other.height());
  double sum = 0;
  for (int y = 0; y < std::min(one.height(), other.height()); ++y) {
    for (int x = 0; x < std::min(one.width(), other.width()); ++x) {
      const QRgb a = one.pixel(x, y), b = other.pixel(x, y);
      sum += std::abs(qRed(a) - qRed(b)) + std::abs(qGreen(a) - qGreen(b)) +
             std::abs(qBlue(a) - qBlue(b));
    }
  }
  return sum / (3.0 * std::max(one.width() * one.height(), 1));
}

/// A program of Qt's, whose windows nobody sees. Where there is an X server to be had they are
/// real, and those of Qt Quick drawn by OpenGL unless QT_QUICK_BACKEND says otherwise.
class QtTest : public testing::Test {
 protected:
  QtTest() {
    static QApplication* const application = makeApplication();
    EXPECT_TRUE(application);
    zaffo_set_trace([](const char*, void*) {}, nullptr);
  }

  /// Runs what waits in the library and in Qt, and what either asks the other for.
  void settle() {
    for (int round = 0; round < 4; ++round) {
      time_.settle();
      QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
      QCoreApplication::processEvents();
    }
  }
  void advance(int64_t span) {
    time_.advance(span);
    settle();
  }

  ManualTime time_;

 private:
  static QApplication* makeApplication() {
    static const VirtualDisplay* const display = VirtualDisplay::start(640, 480).release();
    setenv("QT_QPA_PLATFORM", display ? "xcb" : "offscreen", 1);
    setenv("QSG_RENDER_LOOP", "basic", 1);
    setenv("XDG_RUNTIME_DIR", testing::TempDir().c_str(), 0);
    static int argc = 1;
    static char name[] = "test-qt";
    static char* argv[] = {name, nullptr};
    return new QApplication(argc, argv);
  }
};

}  // namespace zaffo::test
