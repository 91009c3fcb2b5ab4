// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtWidgets/QWidget>

#include "ZaffoClip.h"

/// A widget that shows a clip as large as it fits, in its own proportions, on its background. It
/// has a player only while it is visible: a page that is not shown, or a window that is closed or
/// minimised, stops the clip, which begins anew when it is seen again. Everything else is done with
/// its clip. Thread: main.
class ZAFFO_QT_EXPORT ZaffoVideoWidget : public QWidget {
  Q_OBJECT
  Q_PROPERTY(QUrl source READ source WRITE setSource NOTIFY sourceChanged FINAL)
  Q_PROPERTY(ZaffoClip* clip READ clip CONSTANT FINAL)

 public:
  explicit ZaffoVideoWidget(QWidget* parent = nullptr);
  explicit ZaffoVideoWidget(const QUrl& source, QWidget* parent = nullptr);
  ~ZaffoVideoWidget() override;

  QUrl source() const;
  void setSource(const QUrl& source);
  /// Always the same one; the widget's. Its `active` follows the widget.
  ZaffoClip* clip() const { return clip_; }

  QSize sizeHint() const override;

 Q_SIGNALS:
  void sourceChanged();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  ZaffoClip* const clip_;
};
