// SPDX-License-Identifier: Apache-2.0
#include "ZaffoImage.h"

#include <QtGui/QPainter>
#include <QtQuick/QQuickWindow>

ZaffoImage::ZaffoImage(QQuickItem* parent) : QQuickPaintedItem(parent) {}

void ZaffoImage::setMedia(ZaffoClip* media) {
  if (media == media_) return;
  if (media_) disconnect(media_, nullptr, this, nullptr);
  media_ = media;
  if (media) connect(media, &ZaffoClip::pictureChanged, this, [this] { update(); });
  update();
  Q_EMIT mediaChanged();
}

void ZaffoImage::setFillMode(int mode) {
  if (mode == fillMode_) return;
  fillMode_ = static_cast<Qt::AspectRatioMode>(mode);
  update();
  Q_EMIT fillModeChanged();
}

void ZaffoImage::paint(QPainter* painter) {
  if (!media_) return;
  const QRectF whole = boundingRect();
  const double scale = window() ? window()->effectiveDevicePixelRatio() : 1;
  const QSizeF fitted = media_->pictureSize().scaled(whole.size(), fillMode_);
  QRectF target({}, fitted);
  target.moveCenter(whole.center());
  painter->setClipRect(whole);
  painter->drawImage(target, media_->image((fitted * scale).toSize()));
}
