// SPDX-License-Identifier: Apache-2.0
#include "overlay/Overlay.h"

#include <utility>

#include "feed/Bindings.h"

namespace zaffo::feed {

namespace {

constexpr int64_t kPoolInterval = 500'000'000;

}  // namespace

Overlay::Rows keyRows() {
  Overlay::Rows rows;
  for (const Binding& binding : bindings())
    rows.push_back({binding.triggerList(), std::string(binding.text)});
  return rows;
}

Overlay::Overlay(Private, Parts parts)
    : parts_(std::move(parts)),
      overlay_(OverlayView::create(parts_.density)),
      keys_(Panel::create(parts_.density)),
      pool_(Panel::create(parts_.density)) {
  view_->addSubview(overlay_);
  for (const auto& panel : {keys_, pool_}) {
    panel->setHidden(true);
    view_->addSubview(panel);
  }
  keys_->setRows("Keys and gestures", keyRows());
}

std::shared_ptr<Overlay> Overlay::create(Parts parts) {
  return std::make_shared<Overlay>(Private{}, std::move(parts));
}

Overlay::~Overlay() {
  for (const auto& timer : {timer_, poolTimer_})
    if (timer) timer->cancel();
}

void Overlay::setSize(CGSize size) {
  const CGRect whole{{0, 0}, size};
  view_->setFrame(whole);
  overlay_->setFrame(whole);
  for (const auto& panel : {keys_, pool_}) {
    panel->setFrame(whole);
    panel->setNeedsLayout();  // the density may be another one
  }
  refresh();
}

void Overlay::noteActivity() {
  timing_.noteActivity(TimeSource::now());
  refresh();
}

void Overlay::noteSeek() {
  timing_.noteSeek(TimeSource::now());
  refresh();
}

void Overlay::noteVolume() {
  timing_.noteVolume(TimeSource::now());
  refresh();
}

void Overlay::update(bool isPaused, bool isWaiting) {
  const int64_t now = TimeSource::now();
  const auto before = timing_.nextChange(now);
  timing_.setPaused(isPaused, now);
  timing_.setWaiting(isWaiting, now);
  if (timing_.look(now) != shown_ || timing_.nextChange(now) != before) refresh();
}

void Overlay::pictureShown() {
  if (shown_.title > 0) overlay_->show(parts_.state(), shown_);
}

void Overlay::refresh() {
  shown_ = timing_.look(TimeSource::now());
  overlay_->show(parts_.state(), shown_);
  schedule();
}

void Overlay::schedule() {
  if (const auto old = std::exchange(timer_, nullptr)) old->cancel();
  const auto next = timing_.nextChange(TimeSource::now());
  if (!next) return;
  timer_ = dispatch_timer_at(*next, dispatch_get_main_queue(), [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->refresh();
  });
}

void Overlay::toggleKeys() {
  togglePanel(keys_);
}

void Overlay::togglePool() {
  togglePanel(pool_);
  if (open_ == pool_) readPoolSoon(0);
}

bool Overlay::closePanel() {
  if (!open_) return false;
  togglePanel(open_);
  return true;
}

void Overlay::togglePanel(std::shared_ptr<Panel> panel) {
  const auto old = std::exchange(open_, nullptr);
  if (old) old->setHidden(true);
  if (old != panel) open_ = std::move(panel);
  if (open_) open_->setHidden(false);
  overlay_->setHidden(open_ != nullptr);
}

void Overlay::readPoolSoon(int64_t nanoseconds) {
  if (poolTimer_) poolTimer_->cancel();
  poolTimer_ =
      dispatch_timer_after(nanoseconds, dispatch_get_main_queue(), [weakSelf = weak_from_this()] {
        const auto self = weakSelf.lock();
        if (!self || self->open_ != self->pool_) return;
        self->parts_.readPool([weakSelf](Rows rows) {
          const auto reader = weakSelf.lock();
          if (!reader) return;
          reader->pool_->setRows("Pool of players", std::move(rows));
          reader->readPoolSoon(kPoolInterval);
        });
      });
}

}  // namespace zaffo::feed
