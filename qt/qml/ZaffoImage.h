// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtQml/qqmlregistration.h>
#include <QtCore/QPointer>
#include <QtQuick/QQuickPaintedItem>

#include "ZaffoClip.h"

/// A clip's pictures where Qt Quick draws without shaders, which Qt's own output needs.
/// Thread: main, on which a software scene graph draws.
class ZaffoImage : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(ZaffoClip* media READ media WRITE setMedia NOTIFY mediaChanged FINAL)
  Q_PROPERTY(int fillMode READ fillMode WRITE setFillMode NOTIFY fillModeChanged FINAL)

 public:
  explicit ZaffoImage(QQuickItem* parent = nullptr);

  ZaffoClip* media() const { return media_; }
  void setMedia(ZaffoClip* media);
  /// As that of VideoOutput, whose values are those of Qt::AspectRatioMode.
  int fillMode() const { return fillMode_; }
  void setFillMode(int mode);

  void paint(QPainter* painter) override;

 Q_SIGNALS:
  void mediaChanged();
  void fillModeChanged();

 private:
  QPointer<ZaffoClip> media_;
  Qt::AspectRatioMode fillMode_ = Qt::KeepAspectRatio;
};

/// What makes ZaffoClip a type of QML, which it does not know itself.
struct ZaffoClipInQml {
  Q_GADGET
  QML_FOREIGN(ZaffoClip)
  QML_NAMED_ELEMENT(ZaffoClip)
};
