// SPDX-License-Identifier: Apache-2.0
#include "ZaffoVideoWidget.h"

#include <QtGui/QPainter>

ZaffoVideoWidget::ZaffoVideoWidget(QWidget* parent) : QWidget(parent), clip_(new ZaffoClip(this)) {
  clip_->setActive(false);
  connect(clip_, &ZaffoClip::sourceChanged, this, &ZaffoVideoWidget::sourceChanged);
  connect(clip_, &ZaffoClip::pictureChanged, this, qOverload<>(&QWidget::update));
  connect(clip_, &ZaffoClip::hasPictureChanged, this, qOverload<>(&QWidget::update));
  connect(clip_, &ZaffoClip::pictureSizeChanged, this, &QWidget::updateGeometry);
}

ZaffoVideoWidget::ZaffoVideoWidget(const QUrl& source, QWidget* parent) : ZaffoVideoWidget(parent) {
  setSource(source);
}

ZaffoVideoWidget::~ZaffoVideoWidget() {
  // What it tells as it goes concerns no widget any more.
  disconnect(clip_, nullptr, this, nullptr);
}

QUrl ZaffoVideoWidget::source() const {
  return clip_->source();
}

void ZaffoVideoWidget::setSource(const QUrl& source) {
  clip_->setSource(source);
}

QSize ZaffoVideoWidget::sizeHint() const {
  return clip_->pictureSize().isEmpty() ? QWidget::sizeHint() : clip_->pictureSize().toSize();
}

void ZaffoVideoWidget::paintEvent(QPaintEvent* /*event*/) {
  const QSizeF fitted = clip_->pictureSize().scaled(size(), Qt::KeepAspectRatio);
  const QImage image = clip_->image((fitted * devicePixelRatioF()).toSize());
  if (image.isNull()) return;
  QRectF target({}, fitted);
  target.moveCenter(QRectF(rect()).center());
  QPainter(this).drawImage(target, image);
}

void ZaffoVideoWidget::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  clip_->setActive(true);
}

void ZaffoVideoWidget::hideEvent(QHideEvent* event) {
  clip_->setActive(false);
  QWidget::hideEvent(event);
}
