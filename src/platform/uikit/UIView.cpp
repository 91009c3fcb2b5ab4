// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/UIView.h"

#include <algorithm>

#include "platform/FatalError.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {

namespace {

std::optional<CALayer::Gravity> gravityOf(UIViewContentMode mode) {
  switch (mode) {
    case UIViewContentMode::ScaleToFill:
    case UIViewContentMode::Redraw:
      return CALayer::Gravity::Resize;
    case UIViewContentMode::ScaleAspectFit:
      return CALayer::Gravity::ResizeAspect;
    case UIViewContentMode::ScaleAspectFill:
      return CALayer::Gravity::ResizeAspectFill;
    case UIViewContentMode::Center:
      return CALayer::Gravity::Center;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::shared_ptr<UIView> UIView::create(CGRect frame) {
  return std::shared_ptr<UIView>(new UIView(frame));
}

UIView::UIView(CGRect frame) : layer_(CALayer::create()) {
  layer_->setFrame(frame);
}

UIView::~UIView() {
  for (const auto& subview : subviews_) {
    subview->superview_ = nullptr;
    subview->layer_->removeFromSuperlayer();  // someone may hold on to our layer
  }
}

CGRect UIView::frame() const {
  return layer_->frame();
}

void UIView::setFrame(CGRect frame) {
  const bool resized = layer_->frame().size != frame.size;
  layer_->setFrame(frame);
  if (resized) setNeedsLayout();
}

CGRect UIView::bounds() const {
  return layer_->bounds();
}

void UIView::setBounds(CGRect bounds) {
  const bool resized = layer_->bounds().size != bounds.size;
  layer_->setBounds(bounds);
  if (resized) setNeedsLayout();
}

std::shared_ptr<UIView> UIView::superview() const {
  return superview_ ? superview_->weak_from_this().lock() : nullptr;
}

const std::vector<std::shared_ptr<UIView>>& UIView::subviews() const {
  return subviews_;
}

void UIView::addSubview(const std::shared_ptr<UIView>& view) {
  insertSubview(view, subviews_.size());
}

void UIView::insertSubview(const std::shared_ptr<UIView>& view, std::size_t index) {
  assertMainThread();
  if (!view) return;
  for (const UIView* each = this; each; each = each->superview_) {
    if (each == view.get()) fatalError("UIView: a view cannot be put into itself");
  }
  const std::shared_ptr<UIView> held = view;  // the argument may live in the list it leaves
  held->detach();
  index = std::min(index, subviews_.size());
  layer_->insertSublayer(held->layer_, layerIndexOfSubview(index));
  subviews_.insert(subviews_.begin() + static_cast<std::ptrdiff_t>(index), held);
  held->superview_ = this;
  if (held->needsLayout()) held->noteLayoutBelow();
  setNeedsLayout();
  held->didMoveToSuperview();
}

void UIView::removeFromSuperview() {
  assertMainThread();
  if (!superview_) return;
  const auto& siblings = superview_->subviews_;
  const auto self = std::find_if(siblings.begin(), siblings.end(),
                                 [this](const auto& each) { return each.get() == this; });
  const std::shared_ptr<UIView> held = *self;  // it may be the last reference to this view
  detach();
  didMoveToSuperview();
}

/// Removes the view from its superview, notifying only the latter. The caller holds a reference.
void UIView::detach() {
  if (!superview_) return;
  UIView* const superview = superview_;
  superview_ = nullptr;
  layer_->removeFromSuperlayer();
  std::erase_if(superview->subviews_, [this](const auto& each) { return each.get() == this; });
  superview->setNeedsLayout();
}

/// The index among the sublayers for the layer of a view that is to become the subview at `index`.
std::size_t UIView::layerIndexOfSubview(std::size_t index) const {
  const auto& sublayers = layer_->sublayers();
  if (index >= subviews_.size()) return sublayers.size();
  const auto next = std::find(sublayers.begin(), sublayers.end(), subviews_[index]->layer_);
  return static_cast<std::size_t>(next - sublayers.begin());
}

UIViewContentMode UIView::contentMode() const {
  return contentMode_;
}

void UIView::setContentMode(UIViewContentMode mode) {
  contentMode_ = mode;
  if (const auto gravity = gravityOf(mode)) layer_->setContentsGravity(*gravity);
}

bool UIView::isHidden() const {
  return layer_->isHidden();
}

void UIView::setHidden(bool hidden) {
  layer_->setHidden(hidden);
}

CGColor UIView::backgroundColor() const {
  return layer_->backgroundColor();
}

void UIView::setBackgroundColor(CGColor color) {
  layer_->setBackgroundColor(color);
}

void UIView::setNeedsLayout() {
  assertMainThread();
  needsLayout_ = true;
  noteLayoutBelow();
  layer_->setNeedsDisplay();
}

/// Marks every view above, so that layoutIfNeeded of the root finds its way down. They stay marked
/// until they look there, whatever has become of this view by then.
void UIView::noteLayoutBelow() {
  for (UIView* each = superview_; each; each = each->superview_) each->needsLayoutBelow_ = true;
}

bool UIView::needsLayout() const {
  if (needsLayout_ || !needsLayoutBelow_) return needsLayout_;
  return std::any_of(subviews_.begin(), subviews_.end(),
                     [](const auto& view) { return view->needsLayout(); });
}

void UIView::layoutIfNeeded() {
  assertMainThread();
  if (needsLayout_) {
    needsLayout_ = false;
    layoutSubviews();
  }
  if (!needsLayoutBelow_) return;
  needsLayoutBelow_ = false;
  // Copied: a view's layout may add and remove views.
  const std::vector<std::shared_ptr<UIView>> present = subviews_;
  for (const auto& view : present) {
    if (view->superview_ == this) view->layoutIfNeeded();
  }
}

void UIView::layoutSubviews() {}

void UIView::didMoveToSuperview() {}

}  // namespace zaffo
