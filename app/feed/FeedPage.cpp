// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedPage.h"

#include <utility>

namespace zaffo::feed {

namespace {

constexpr double kLetterSize = 17;
constexpr double kTextWidth = 0.85;  // of the page
constexpr CGColor kPageColor{0.09, 0.09, 0.11, 1};

CGRect rectangleAtOrigin(CGSize size) {
  return {{0, 0}, size};
}

}  // namespace

FeedPage::FeedPage(Private, Density density)
    : UIView(CGRectZero),
      thumbnailView_(UIView::create()),
      label_(Label::create(std::move(density))) {}

std::shared_ptr<FeedPage> FeedPage::create(Density density) {
  auto page = std::make_shared<FeedPage>(Private{}, std::move(density));
  page->layer()->setMasksToBounds(true);
  page->setBackgroundColor(kPageColor);
  page->thumbnailView_->layer()->setContentsGravity(CALayer::Gravity::ResizeAspect);
  page->label_->setHidden(true);
  page->addSubview(page->thumbnailView_);
  page->addSubview(page->label_);
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
  label_->setHidden(text_.empty());
  setNeedsLayout();
}

void FeedPage::layoutSubviews() {
  UIView::layoutSubviews();
  const CGRect whole = rectangleAtOrigin(frame().size);
  thumbnailView_->setFrame(whole);
  if (playerView_ && playerView_->superview().get() == this) playerView_->setFrame(whole);
  layOutText();
}

void FeedPage::layOutText() {
  const CGSize page = frame().size;
  label_->setText(text_,
                  {.size = kLetterSize, .width = page.width * kTextWidth, .isCentred = true});
  const CGSize size = label_->textSize();
  label_->moveTo({(page.width - size.width) / 2, (page.height - size.height) / 2});
}

}  // namespace zaffo::feed
