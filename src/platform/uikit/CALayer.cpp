// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/CALayer.h"

#include <algorithm>

#include "platform/FatalError.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {

struct CALayer::State {
  CGRect frame;
  CGPoint boundsOrigin;

  CALayer* superlayer = nullptr;  // cleared by its destructor
  std::vector<std::shared_ptr<CALayer>> sublayers;

  CGColor backgroundColor;
  CGImagePtr contents;
  Gravity contentsGravity = Gravity::Resize;
  bool hidden = false;
  double opacity = 1;
  bool masksToBounds = false;

  std::function<void()> displayRequestHandler;
};

std::shared_ptr<CALayer> CALayer::create() {
  return std::shared_ptr<CALayer>(new CALayer);
}

CALayer::CALayer() : state_(std::make_unique<State>()) {}

CALayer::~CALayer() {
  for (const auto& sublayer : state_->sublayers) sublayer->state_->superlayer = nullptr;
}

CGRect CALayer::frame() const {
  return state_->frame;
}

void CALayer::setFrame(CGRect frame) {
  if (state_->frame == frame) return;
  state_->frame = frame;
  setNeedsDisplay();
}

CGRect CALayer::bounds() const {
  return {state_->boundsOrigin, state_->frame.size};
}

void CALayer::setBounds(CGRect bounds) {
  if (this->bounds() == bounds) return;
  CGRect& frame = state_->frame;
  frame.origin.x += (frame.size.width - bounds.size.width) / 2;
  frame.origin.y += (frame.size.height - bounds.size.height) / 2;
  frame.size = bounds.size;
  state_->boundsOrigin = bounds.origin;
  setNeedsDisplay();
}

std::shared_ptr<CALayer> CALayer::superlayer() const {
  return state_->superlayer ? state_->superlayer->weak_from_this().lock() : nullptr;
}

const std::vector<std::shared_ptr<CALayer>>& CALayer::sublayers() const {
  return state_->sublayers;
}

void CALayer::addSublayer(const std::shared_ptr<CALayer>& layer) {
  insertSublayer(layer, state_->sublayers.size());
}

void CALayer::insertSublayer(const std::shared_ptr<CALayer>& layer, std::size_t index) {
  assertMainThread();
  if (!layer) return;
  for (const CALayer* each = this; each; each = each->state_->superlayer) {
    if (each == layer.get()) fatalError("CALayer: a layer cannot be put into itself");
  }
  const std::shared_ptr<CALayer> held = layer;  // the argument may live in the list it leaves
  held->removeFromSuperlayer();
  auto& sublayers = state_->sublayers;
  index = std::min(index, sublayers.size());
  sublayers.insert(sublayers.begin() + static_cast<std::ptrdiff_t>(index), held);
  held->state_->superlayer = this;
  held->setNeedsDisplay();
}

void CALayer::removeFromSuperlayer() {
  assertMainThread();
  CALayer* const superlayer = state_->superlayer;
  if (!superlayer) return;
  auto& siblings = superlayer->state_->sublayers;
  const auto self = std::find_if(siblings.begin(), siblings.end(),
                                 [this](const auto& each) { return each.get() == this; });
  const std::shared_ptr<CALayer> held = *self;  // it may be the last reference to this layer
  siblings.erase(self);
  state_->superlayer = nullptr;
  if (!isInvisible()) superlayer->setNeedsDisplay();
}

CGColor CALayer::backgroundColor() const {
  return state_->backgroundColor;
}

void CALayer::setBackgroundColor(CGColor color) {
  if (state_->backgroundColor == color) return;
  state_->backgroundColor = color;
  setNeedsDisplay();
}

const CGImagePtr& CALayer::contents() const {
  return state_->contents;
}

void CALayer::setContents(CGImagePtr image) {
  if (state_->contents == image) return;
  state_->contents = std::move(image);
  setNeedsDisplay();
}

CALayer::Gravity CALayer::contentsGravity() const {
  return state_->contentsGravity;
}

void CALayer::setContentsGravity(Gravity gravity) {
  if (state_->contentsGravity == gravity) return;
  state_->contentsGravity = gravity;
  setNeedsDisplay();
}

bool CALayer::isHidden() const {
  return state_->hidden;
}

void CALayer::setHidden(bool hidden) {
  if (state_->hidden == hidden) return;
  state_->hidden = hidden;
  requestDisplayAround();
}

double CALayer::opacity() const {
  return state_->opacity;
}

void CALayer::setOpacity(double opacity) {
  opacity = opacity > 0 ? std::min(opacity, 1.0) : 0;
  if (state_->opacity == opacity) return;
  state_->opacity = opacity;
  requestDisplayAround();
}

bool CALayer::masksToBounds() const {
  return state_->masksToBounds;
}

void CALayer::setMasksToBounds(bool masks) {
  if (state_->masksToBounds == masks) return;
  state_->masksToBounds = masks;
  setNeedsDisplay();
}

void CALayer::setNeedsDisplay() {
  if (!state_->superlayer && !state_->displayRequestHandler) return;  // nobody to ask
  assertMainThread();
  const CALayer* root = this;
  for (const CALayer* each = this; each; each = each->state_->superlayer) {
    if (each->isInvisible()) return;  // nobody sees the change
    root = each;
  }
  if (root->state_->displayRequestHandler) root->state_->displayRequestHandler();
}

void CALayer::requestDisplayAround() {
  if (state_->superlayer) {
    state_->superlayer->setNeedsDisplay();
  } else if (state_->displayRequestHandler) {
    state_->displayRequestHandler();
  }
}

bool CALayer::isInvisible() const {
  return state_->hidden || state_->opacity <= 0;
}

std::optional<LayerPicture> CALayer::picture(int64_t) {
  return std::nullopt;
}

std::optional<int64_t> CALayer::nextPictureTime() {
  return std::nullopt;
}

void CALayer::didPresent(const CVPixelBufferPtr&, int64_t) {}

void CALayer::setDisplayRequestHandler(std::function<void()> handler) {
  state_->displayRequestHandler = std::move(handler);
}

}  // namespace zaffo
