#include "feed/FeedPage.h"

#include <algorithm>
#include <utility>

#include "feed/TextImage.h"

namespace zaffo::feed {

namespace {

constexpr int kLetterHeight = 18;
constexpr double kTextWidth = 0.85;  // of the page
constexpr CGColor kPageColor{0.09, 0.09, 0.11, 1};

CGRect rectangleAtOrigin(CGSize size) {
  return {{0, 0}, size};
}

}  // namespace

FeedPage::FeedPage(Private)
    : UIView(CGRectZero), thumbnailView_(UIView::create()), textView_(UIView::create()) {}

std::shared_ptr<FeedPage> FeedPage::create() {
  auto page = std::make_shared<FeedPage>(Private{});
  page->layer()->setMasksToBounds(true);
  page->setBackgroundColor(kPageColor);
  page->thumbnailView_->layer()->setContentsGravity(CALayer::Gravity::ResizeAspect);
  page->textView_->layer()->setContentsGravity(CALayer::Gravity::Center);
  page->textView_->setHidden(true);
  page->addSubview(page->thumbnailView_);
  page->addSubview(page->textView_);
  return page;
}

void FeedPage::setThumbnail(CGImagePtr image) {
  thumbnailView_->layer()->setContents(std::move(image));
}

bool FeedPage::hasThumbnail() const {
  return thumbnailView_->layer()->contents() != nullptr;
}

void FeedPage::setThumbnailHidden(bool hidden) {
  thumbnailView_->setHidden(hidden);
}

void FeedPage::setPlayerView(std::shared_ptr<UIView> view) {
  if (view == playerView_ && (!view || view->superview().get() == this)) return;
  const auto old = std::exchange(playerView_, std::move(view));
  if (old && old->superview().get() == this) old->removeFromSuperview();
  if (!playerView_) return;
  insertSubview(playerView_, 1);
  playerView_->setFrame(rectangleAtOrigin(frame().size));
}

void FeedPage::setText(std::string text) {
  if (text == text_) return;
  text_ = std::move(text);
  renderedWidth_ = 0;
  textView_->setHidden(text_.empty());
  setNeedsLayout();
}

void FeedPage::layoutSubviews() {
  UIView::layoutSubviews();
  const CGRect whole = rectangleAtOrigin(frame().size);
  thumbnailView_->setFrame(whole);
  textView_->setFrame(whole);
  if (playerView_ && playerView_->superview().get() == this) playerView_->setFrame(whole);
  renderTextImage();
}

void FeedPage::renderTextImage() {
  const double width = frame().size.width;
  if (width == renderedWidth_) return;
  renderedWidth_ = width;
  textView_->layer()->setContents(
      renderText(text_, static_cast<int>(width * kTextWidth), kLetterHeight));
}

}  // namespace zaffo::feed
