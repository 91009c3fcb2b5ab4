// SPDX-License-Identifier: Apache-2.0
#include "text/Label.h"

#include <utility>

namespace zaffo::feed {

Label::Label(Private, Density density) : UIView(CGRectZero), density_(std::move(density)) {}

std::shared_ptr<Label> Label::create(Density density) {
  auto label = std::make_shared<Label>(Private{}, std::move(density));
  label->layer()->setContentsGravity(CALayer::Gravity::Center);
  return label;
}

void Label::setText(const std::string& text, const TextStyle& style) {
  const double density = density_();
  if (text == text_ && style == style_ && density == drawnAt_) return;
  text_ = text;
  style_ = style;
  drawnAt_ = density;
  const CGImagePtr image = renderText(text, style, density);
  size_ = image ? CGSize{image->width() / density, image->height() / density} : CGSize{};
  layer()->setContents(image);
  setFrame({frame().origin, size_});
}

void Label::moveTo(CGPoint place) {
  setFrame({place, size_});
}

}  // namespace zaffo::feed
