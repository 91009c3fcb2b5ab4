// SPDX-License-Identifier: Apache-2.0
#include "overlay/Panel.h"

#include <algorithm>
#include <utility>

namespace zaffo::feed {

namespace {

constexpr double kMargin = 18;
constexpr double kLargest = 15, kSmallest = 5;
constexpr double kLeftPart = 0.42;  // of the width

}  // namespace

Panel::Panel(Private, Density density) : UIView(CGRectZero), density_(std::move(density)) {}

std::shared_ptr<Panel> Panel::create(Density density) {
  auto panel = std::make_shared<Panel>(Private{}, std::move(density));
  panel->setBackgroundColor({0.03, 0.03, 0.05, 0.86});
  return panel;
}

void Panel::setRows(const std::string& heading, std::vector<Row> rows) {
  if (heading == heading_ && rows == rows_) return;
  heading_ = heading;
  rows_ = std::move(rows);
  setNeedsLayout();
}

Label& Panel::label(std::size_t index) {
  while (labels_.size() <= index) {
    labels_.push_back(Label::create(density_));
    addSubview(labels_.back());
  }
  return *labels_[index];
}

void Panel::layoutSubviews() {
  UIView::layoutSubviews();
  double size = kLargest;
  while (arrange(size) > frame().size.height && size > kSmallest) size *= 0.92;
}

double Panel::arrange(double size) {
  const double whole = std::max(frame().size.width - 2 * kMargin, 1.0);
  const double gap = size * 0.45, leftWidth = whole * kLeftPart;
  std::size_t used = 0;
  const auto put = [&](const std::string& text, CGPoint place, TextStyle style) {
    Label& shown = label(used++);
    shown.setText(text, style);
    shown.moveTo(place);
    return shown.textSize().height;
  };
  double y = kMargin;
  y += put(heading_, {kMargin, y}, {.size = size * 1.3, .width = whole}) + 2 * gap;
  for (const Row& row : rows_) {
    const TextStyle left{.size = size, .width = row.right.empty() ? whole : leftWidth - gap};
    const TextStyle right{.size = size, .width = whole - leftWidth, .color = {1, 1, 1, 0.75}};
    const double first = put(row.left, {kMargin, y}, left);
    y += std::max(first, put(row.right, {kMargin + leftWidth, y}, right)) + gap;
  }
  while (used < labels_.size()) label(used++).setText({}, {});
  return y + kMargin - gap;
}

}  // namespace zaffo::feed
