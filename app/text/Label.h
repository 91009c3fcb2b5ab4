// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "text/TextImage.h"

namespace zaffo::feed {

/// Pixels a point of the display that something is shown on, as they are when asked.
using Density = std::function<double()>;

/// A view that shows a text, sharp at the display's density. Its size is the text's. Thread: main.
class Label final : public UIView {
  struct Private {};

 public:
  Label(Private, Density density);
  [[nodiscard]] static std::shared_ptr<Label> create(Density density);

  /// Draws the text, unless it is what is shown already; once more, by itself, when the
  /// system has told of the fonts that it needs.
  void setText(const std::string& text, const TextStyle& style);
  [[nodiscard]] const std::string& text() const { return text_; }
  /// In points; nothing when there is no text.
  [[nodiscard]] CGSize textSize() const { return size_; }
  /// Puts the upper left corner there.
  void moveTo(CGPoint place);

 private:
  void draw();
  void ask(std::set<SystemFonts::Question> questions);

  const Density density_;
  std::string text_;
  TextStyle style_;
  double drawnAt_ = 0;  // pixels a point
  CGSize size_;
};

}  // namespace zaffo::feed
