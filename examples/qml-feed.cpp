// SPDX-License-Identifier: Apache-2.0

// A feed in Qt Quick: qml-feed [--each SECONDS] FILE|URL...
//
// A clip to a page; the wheel, drags and the arrow keys turn the pages. With --each they turn by
// themselves, and the program ends after the last.

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>
#include <QtGui/QGuiApplication>
#include <QtQml/QQmlApplicationEngine>

static const char feed[] = R"(
import QtQuick
import Zaffo

Window {
    required property var clips
    required property int each

    width: 360
    height: 640
    visible: true
    color: "black"

    ListView {
        id: pages
        anchors.fill: parent
        model: clips
        focus: true
        snapMode: ListView.SnapOneItem
        highlightRangeMode: ListView.StrictlyEnforceRange
        highlightMoveDuration: 200
        // The page in view plays. The next one is there already and has no player.
        delegate: ZaffoVideo {
            id: page
            required property string modelData
            source: modelData
            active: ListView.isCurrentItem
            width: pages.width
            height: pages.height
            onPictureSizeChanged:
                if (hasPicture) console.log(source + ": " + pictureSize.width + "x" + pictureSize.height)
            onStatusChanged: if (status === ZaffoClip.Failed) console.log(source + ": " + error)
            TapHandler { onTapped: page.playing = !page.playing }
        }
    }

    Timer {
        interval: each * 1000
        running: each > 0
        repeat: true
        onTriggered: {
            if (pages.currentIndex + 1 < clips.length) pages.incrementCurrentIndex()
            else Qt.quit()
        }
    }
}
)";

int main(int argc, char** argv) {
  QGuiApplication application(argc, argv);
  QCommandLineParser options;
  const QCommandLineOption each("each", "Turn the page every so often", "SECONDS", "0");
  options.addOption(each);
  options.addPositionalArgument("FILE|URL...", "What to play");
  options.addHelpOption();
  options.process(application);
  if (options.positionalArguments().isEmpty()) options.showHelp(2);

  QStringList clips;
  for (const QString& argument : options.positionalArguments())
    clips += QUrl::fromUserInput(argument, QDir::currentPath(), QUrl::AssumeLocalFile).toString();
  QQmlApplicationEngine engine;
  engine.setInitialProperties({{"clips", clips}, {"each", options.value(each).toInt()}});
  engine.loadData(feed);
  return engine.rootObjects().isEmpty() ? 1 : QGuiApplication::exec();
}
