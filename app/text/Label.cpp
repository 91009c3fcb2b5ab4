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
  draw();
}

void Label::draw() {
  std::set<SystemFonts::Question> unanswered;
  const CGImagePtr image = renderText(text_, style_, drawnAt_, &unanswered);
  size_ = image ? CGSize{image->width() / drawnAt_, image->height() / drawnAt_} : CGSize{};
  layer()->setContents(image);
  setFrame({frame().origin, size_});
  if (!unanswered.empty()) ask(std::move(unanswered));
}

void Label::ask(std::set<SystemFonts::Question> questions) {
  SystemFonts::shared().ask(std::move(questions), [this, weak = weak_from_this()] {
    const auto alive = weak.lock();
    if (!alive) return;
    draw();
    // Whose layout goes by its size.
    if (const auto parent = superview()) parent->setNeedsLayout();
  });
}

void Label::moveTo(CGPoint place) {
  setFrame({place, size_});
}

}  // namespace zaffo::feed
