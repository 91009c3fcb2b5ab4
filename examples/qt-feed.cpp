// SPDX-License-Identifier: Apache-2.0

// A feed of Qt's widgets: qt-feed [--each SECONDS] FILE|URL...
//
// A clip to a page; the wheel and the arrow keys turn the pages. With --each they turn by
// themselves, and the program ends after the last.

#include <ZaffoQt/ZaffoVideoWidget.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>
#include <QtCore/QTimer>
#include <QtGui/QKeyEvent>
#include <QtGui/QWheelEvent>
#include <QtWidgets/QApplication>
#include <QtWidgets/QStackedWidget>

/// Only the page in view is visible, and so has a player.
class Feed final : public QStackedWidget {
 public:
  void addPage(const QUrl& source) {
    auto* page = new ZaffoVideoWidget(source);
    const ZaffoClip* clip = page->clip();
    connect(clip, &ZaffoClip::pictureSizeChanged, page, [clip] {
      const QSize size = clip->pictureSize().toSize();
      qInfo("%s: %dx%d", qPrintable(clip->source().toString()), size.width(), size.height());
    });
    connect(clip, &ZaffoClip::statusChanged, page, [clip] {
      if (clip->status() == ZaffoClip::Failed)
        qInfo("%s: %s", qPrintable(clip->source().toString()), qPrintable(clip->error()));
    });
    addWidget(page);
  }

  /// Turns to the page that many further on. False where there is none.
  bool turn(int pages) {
    const int index = currentIndex() + pages;
    if (index < 0 || index >= count()) return false;
    setCurrentIndex(index);
    return true;
  }

 protected:
  void wheelEvent(QWheelEvent* event) override { turn(event->angleDelta().y() > 0 ? -1 : 1); }
  void keyPressEvent(QKeyEvent* event) override {
    if (event->key() == Qt::Key_Down) turn(1);
    if (event->key() == Qt::Key_Up) turn(-1);
  }
};

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QCommandLineParser options;
  const QCommandLineOption each("each", "Turn the page every so often", "SECONDS", "0");
  options.addOption(each);
  options.addPositionalArgument("FILE|URL...", "What to play");
  options.addHelpOption();
  options.process(application);
  if (options.positionalArguments().isEmpty()) options.showHelp(2);

  Feed feed;
  feed.setStyleSheet("background: black");
  feed.resize(360, 640);
  for (const QString& argument : options.positionalArguments())
    feed.addPage(QUrl::fromUserInput(argument, QDir::currentPath(), QUrl::AssumeLocalFile));
  feed.show();

  QTimer timer;
  QObject::connect(&timer, &QTimer::timeout, &feed, [&] {
    if (!feed.turn(1)) QApplication::quit();
  });
  if (const int seconds = options.value(each).toInt(); seconds > 0) timer.start(seconds * 1000);
  return QApplication::exec();
}
