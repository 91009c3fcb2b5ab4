// SPDX-License-Identifier: Apache-2.0
#include "overlay/OverlayView.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "overlay/Shapes.h"

namespace zaffo::feed {

namespace {

constexpr double kMargin = 14;
constexpr double kShadeHeight = 150;
constexpr double kBarHeight = 3;
constexpr double kBarGrasp = 14;  // points above and below the bar that count as it
constexpr double kThumb = 13, kPause = 76, kSpinner = 46, kDot = 6;
constexpr CGSize kPill{150, 34};
constexpr double kPillTop = 28;

void place(UIView& view, CGRect frame, double opacity) {
  view.setHidden(!(opacity > 0));
  if (!(opacity > 0)) return;
  view.setFrame(frame);
  view.layer()->setOpacity(opacity);
}

CGRect centredIn(CGSize outer, double side) {
  return {{(outer.width - side) / 2, (outer.height - side) / 2}, {side, side}};
}

}  // namespace

std::string timeText(double seconds) {
  const auto whole = static_cast<long>(std::max(seconds, 0.0));
  char text[48];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  }
  return text;
}

OverlayView::OverlayView(Private, const Density& density)
    : UIView(CGRectZero),
      density_(density),
      shade_(UIView::create()),
      track_(UIView::create()),
      fill_(UIView::create()),
      thumb_(UIView::create()),
      pause_(UIView::create()),
      ring_(UIView::create()),
      pill_(UIView::create()),
      title_(Label::create(density)),
      place_(Label::create(density)),
      times_(Label::create(density)),
      volume_(Label::create(density)) {}

std::shared_ptr<OverlayView> OverlayView::create(const Density& density) {
  auto view = std::make_shared<OverlayView>(Private{}, density);
  for (const auto& part : {view->shade_, view->track_, view->fill_, view->thumb_, view->pause_,
                           view->ring_, view->pill_})
    view->add(part);
  for (const auto& label : {view->title_, view->place_, view->times_, view->volume_})
    view->add(label);
  for (int i = 0; i < OverlayTiming::kSpinnerSteps; ++i)
    view->dots_.push_back(view->add(UIView::create()));
  view->track_->setBackgroundColor({1, 1, 1, 0.35});
  view->fill_->setBackgroundColor({1, 1, 1, 1});
  return view;
}

std::shared_ptr<UIView> OverlayView::add(const std::shared_ptr<UIView>& view) {
  view->setHidden(true);
  addSubview(view);
  return view;
}

void OverlayView::drawShapes() {
  const double density = density_();
  if (std::exchange(drawnAt_, density) == density) return;
  const auto pixels = [&](double points) {
    return static_cast<int>(std::lround(points * density));
  };
  shade_->layer()->setContents(shadeImage(64, 0.7));
  thumb_->layer()->setContents(discImage(pixels(kThumb), {1, 1, 1, 1}));
  pause_->layer()->setContents(pauseImage(pixels(kPause)));
  ring_->layer()->setContents(discImage(pixels(kPause), {0, 0, 0, 0.5}));
  pill_->layer()->setContents(roundedImage(pixels(kPill.width), pixels(kPill.height),
                                           pixels(kPill.height) / 2.0, {0, 0, 0, 0.6}));
  const auto dot = discImage(pixels(kDot), {1, 1, 1, 1});
  for (const auto& view : dots_) view->layer()->setContents(dot);
}

CGRect OverlayView::barIn(CGSize window) {
  return {{kMargin, window.height - kMargin - kBarHeight},
          {std::max(window.width - 2 * kMargin, 1.0), kBarHeight}};
}

bool OverlayView::isOnBar(CGPoint place, CGSize window) {
  const CGRect bar = barIn(window);
  const double middle = bar.origin.y + bar.size.height / 2;
  return std::abs(place.y - middle) <= kBarGrasp && place.x >= bar.origin.x - kMargin / 2 &&
         place.x <= bar.origin.x + bar.size.width + kMargin / 2;
}

double OverlayView::fractionAt(double x, CGSize window) {
  const CGRect bar = barIn(window);
  return std::clamp((x - bar.origin.x) / bar.size.width, 0.0, 1.0);
}

void OverlayView::show(const OverlayState& state, const OverlayTiming::Look& look) {
  if (!look.isNothing()) drawShapes();
  showTitle(state, look);
  showBar(state, state.position ? look.title : 0);
  showMarks(look);
  showVolume(state, look.volume);
}

void OverlayView::showTitle(const OverlayState& state, const OverlayTiming::Look& look) {
  const CGSize window = frame().size;
  const double width = std::max(window.width - 2 * kMargin, 1.0);
  place(*shade_, {{0, window.height - kShadeHeight}, {window.width, kShadeHeight}}, look.title);
  if (look.title > 0) {
    title_->setText(state.title, {.size = 16, .width = width, .lines = 2});
    place_->setText(std::to_string(state.page + 1) + " of " + std::to_string(state.pageCount),
                    {.size = 13, .width = width / 2, .lines = 1, .color = {1, 1, 1, 0.85}});
  }
  if (look.times > 0 && state.position) {
    times_->setText(timeText(state.position->time) + " / " + timeText(state.position->length),
                    {.size = 13, .width = width / 2, .lines = 1});
  }
  const double bottom = barIn(window).origin.y - 8;
  const double placeTop = bottom - place_->textSize().height;
  place(*place_, {{kMargin, placeTop}, place_->textSize()}, look.title);
  place(*times_,
        {{window.width - kMargin - times_->textSize().width, placeTop}, times_->textSize()},
        state.position ? std::min(look.times, look.title) : 0);
  place(*title_, {{kMargin, placeTop - 3 - title_->textSize().height}, title_->textSize()},
        look.title);
}

void OverlayView::showBar(const OverlayState& state, double opacity) {
  CGRect bar = barIn(frame().size);
  if (state.isScrubbing) bar = {{bar.origin.x, bar.origin.y - 1}, {bar.size.width, kBarHeight + 2}};
  place(*track_, bar, opacity);
  const double part = state.position && state.position->length > 0
                          ? std::clamp(state.position->time / state.position->length, 0.0, 1.0)
                          : 0;
  // In whole pixels: a bar that has not moved is no reason to draw.
  const double density = density_();
  const double width = std::round(bar.size.width * part * density) / density;
  place(*fill_, {bar.origin, {width, bar.size.height}}, opacity);
  const CGPoint middle{bar.origin.x + width, bar.origin.y + bar.size.height / 2};
  place(*thumb_, {{middle.x - kThumb / 2, middle.y - kThumb / 2}, {kThumb, kThumb}},
        state.isScrubbing ? opacity : 0);
}

void OverlayView::showMarks(const OverlayTiming::Look& look) {
  const CGSize window = frame().size;
  place(*pause_, centredIn(window, kPause), look.pause);
  place(*ring_, centredIn(window, kPause), look.spinner);
  const double radius = (kSpinner - kDot) / 2;
  for (std::size_t i = 0; i < dots_.size(); ++i) {
    const int count = OverlayTiming::kSpinnerSteps;
    const double angle = 2 * std::numbers::pi * static_cast<double>(i) / count;
    const CGPoint middle{window.width / 2 + radius * std::sin(angle),
                         window.height / 2 - radius * std::cos(angle)};
    const int behind = (look.spinnerStep - static_cast<int>(i) + count) % count;
    const double brightness = std::max(1 - behind * 0.09, 0.12);
    place(*dots_[i], {{middle.x - kDot / 2, middle.y - kDot / 2}, {kDot, kDot}},
          look.spinner * brightness);
  }
}

void OverlayView::showVolume(const OverlayState& state, double opacity) {
  const double left = (frame().size.width - kPill.width) / 2;
  place(*pill_, {{left, kPillTop}, kPill}, opacity);
  if (opacity > 0) {
    volume_->setText(
        state.isMuted ? "Muted" : "Volume " + std::to_string(state.volumePercent) + " %",
        {.size = 15, .width = kPill.width, .lines = 1, .isCentred = true});
  }
  const CGSize size = volume_->textSize();
  place(
      *volume_,
      {{left + (kPill.width - size.width) / 2, kPillTop + (kPill.height - size.height) / 2}, size},
      opacity);
}

}  // namespace zaffo::feed
