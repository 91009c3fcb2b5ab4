// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "feed/PageScroll.h"

namespace zaffo::feed {

/// A column of pages, each as large as the view, which shows the part it is scrolled to. Scrolls by
/// dragging or to a page. A glide goes on with each picture that is put on screen. The owner adds
/// the pages that are near. Thread: main.
class FeedView final : public UIView {
  struct Private {};

 public:
  FeedView(Private, int pageCount);
  [[nodiscard]] static std::shared_ptr<FeedView> create(int pageCount);
  /// The page it rests on or glides to, from 0.
  [[nodiscard]] int page() const { return scroll_.page(); }
  [[nodiscard]] int pageCount() const { return pageCount_; }
  /// More pages at the end.
  void setPageCount(int count);
  [[nodiscard]] double offset() const { return scroll_.offset(); }
  [[nodiscard]] bool isMoving() const { return scroll_.isMoving(); }
  [[nodiscard]] bool isGliding() const { return scroll_.isGliding(); }
  [[nodiscard]] bool isDragging() const { return scroll_.isDragging(); }

  /// Called when page() changes, which is at the start of the glide there.
  void setPageHandler(std::function<void(int page)> handler) { pageHandler_ = std::move(handler); }
  /// Called when it has come to rest after a movement.
  void setRestHandler(std::function<void()> handler) { restHandler_ = std::move(handler); }

  /// Shows a page without gliding there, and without telling the handler.
  void startAt(int page);
  /// Glides to a page, or to the nearest one that exists.
  void scrollToPage(int page);
  /// A picture was put on screen: a glide goes on, so that there is a place for each picture and a
  /// picture for each place, whatever the display's pace.
  void pictureShown();
  /// A drag, in points of the view.
  void beginDrag(double y);
  void drag(double y);
  void endDrag();

  /// Shows `view` as page `page`, or removes it.
  void placePage(int page, const std::shared_ptr<UIView>& view);
  void removePage(int page);

  void layoutSubviews() override;

 private:
  template <typename Movement>
  void move(Movement movement);
  void placeViews();

  int pageCount_;
  PageScroll scroll_;
  double pageHeight_ = 0;
  std::map<int, std::shared_ptr<UIView>> pages_;
  std::function<void(int page)> pageHandler_;
  std::function<void()> restHandler_;
};

}  // namespace zaffo::feed
