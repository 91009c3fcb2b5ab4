// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedView.h"

namespace zaffo::feed {

namespace {

constexpr int64_t kFirstStep = 1'000'000'000 / 60;

}  // namespace

FeedView::FeedView(Private, int pageCount) : UIView(CGRectZero), pageCount_(pageCount) {}

std::shared_ptr<FeedView> FeedView::create(int pageCount) {
  auto view = std::make_shared<FeedView>(Private{}, pageCount);
  view->layer()->setMasksToBounds(true);
  return view;
}

void FeedView::setPageCount(int count) {
  pageCount_ = count;
  scroll_.setCount(count);
}

template <typename Movement>
void FeedView::move(Movement movement) {
  const int oldPage = page();
  const bool wasMoving = isMoving();
  movement();
  placeViews();
  if (isGliding()) layer()->setNeedsDisplay();  // also where it moves by less than can be seen
  if (page() != oldPage && pageHandler_) pageHandler_(page());
  if (wasMoving && !isMoving() && restHandler_) restHandler_();
}

void FeedView::startAt(int page) {
  scroll_.setPage(page);
  placeViews();
}

void FeedView::scrollToPage(int page) {
  move([&] {
    const int64_t now = TimeSource::now();
    scroll_.glideTo(page, now - kFirstStep);
    scroll_.advance(now);  // the page appears at once, not a picture later
  });
}

void FeedView::beginDrag(double y) {
  move([&] { scroll_.beginDrag(y, TimeSource::now()); });
}

void FeedView::drag(double y) {
  move([&] { scroll_.drag(y, TimeSource::now()); });
}

void FeedView::endDrag() {
  move([&] { scroll_.endDrag(TimeSource::now()); });
}

void FeedView::pictureShown() {
  if (isGliding()) move([&] { scroll_.advance(TimeSource::now()); });
}

void FeedView::placePage(int page, const std::shared_ptr<UIView>& view) {
  pages_[page] = view;
  addSubview(view);
  placeViews();
}

void FeedView::removePage(int page) {
  const auto found = pages_.find(page);
  if (found == pages_.end()) return;
  found->second->removeFromSuperview();
  pages_.erase(found);
}

void FeedView::layoutSubviews() {
  UIView::layoutSubviews();
  if (frame().size.height != pageHeight_) {
    pageHeight_ = frame().size.height;
    scroll_.setPages(pageCount_, pageHeight_);
  }
  placeViews();
}

void FeedView::placeViews() {
  const CGSize size = frame().size;
  for (const auto& [page, view] : pages_)
    view->setFrame({{0, page * size.height - scroll_.offset()}, size});
}

}  // namespace zaffo::feed
