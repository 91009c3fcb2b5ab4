// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "text/Label.h"

namespace zaffo::feed {

/// What one page shows, from back to front: the video's thumbnail, its player's view, and a text
/// when the video cannot be played. Everything fills the page and keeps its aspect ratio. Thread:
/// main.
class FeedPage final : public UIView {
  struct Private {};

 public:
  FeedPage(Private, Density density);
  [[nodiscard]] static std::shared_ptr<FeedPage> create(Density density);

  void setThumbnail(CGImagePtr image);
  [[nodiscard]] bool hasThumbnail() const;
  void setThumbnailHidden(bool hidden);

  /// Shows the view of a player; null removes it, unless another page has taken it meanwhile.
  void setPlayerView(std::shared_ptr<UIView> view);

  /// Shows `text` in the middle; nothing when empty.
  void setText(std::string text);
  [[nodiscard]] const std::string& text() const { return text_; }

  void layoutSubviews() override;

 private:
  void layOutText();

  std::shared_ptr<UIView> thumbnailView_;
  std::shared_ptr<UIView> playerView_;
  std::shared_ptr<Label> label_;
  std::string text_;
};

}  // namespace zaffo::feed
