#pragma once

#include <functional>
#include <map>
#include <memory>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "feed/PageScroll.h"

namespace zaffo::feed {

/// A column of pages, each as large as the view, which shows the part it is scrolled to. Scrolls by
/// dragging or to a page, gliding on a timer. The owner adds the pages that are near. Thread: main.
class FeedView final : public UIView {
  struct Private {};

 public:
  FeedView(Private, int pageCount);
  [[nodiscard]] static std::shared_ptr<FeedView> create(int pageCount);
  ~FeedView() override;

  /// The page it rests on or glides to, from 0.
  [[nodiscard]] int page() const { return scroll_.page(); }
  [[nodiscard]] int pageCount() const { return pageCount_; }
  [[nodiscard]] double offset() const { return scroll_.offset(); }
  [[nodiscard]] bool isMoving() const { return scroll_.isMoving(); }
  [[nodiscard]] bool isGliding() const { return scroll_.isGliding(); }
  [[nodiscard]] bool isDragging() const { return scroll_.isDragging(); }

  /// Called when page() changes, which is at the start of the glide there.
  void setPageHandler(std::function<void(int page)> handler) { pageHandler_ = std::move(handler); }
  /// Called when it has come to rest after a movement.
  void setRestHandler(std::function<void()> handler) { restHandler_ = std::move(handler); }

  /// Glides to a page, or to the nearest one that exists.
  void scrollToPage(int page);
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
  void tick();
  void runTimerWhileGliding();
  void placeViews();

  const int pageCount_;
  PageScroll scroll_;
  double pageHeight_ = 0;
  std::map<int, std::shared_ptr<UIView>> pages_;
  DispatchTimerPtr timer_;
  std::function<void(int page)> pageHandler_;
  std::function<void()> restHandler_;
};

}  // namespace zaffo::feed
