// SPDX-License-Identifier: Apache-2.0
#include "clip/PictureOutput.h"

#include <utility>

#include "platform/TimeSource.h"
#include "platform/coremedia/PictureScaler.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/uikit/CALayer.h"

namespace zaffo {

namespace {

bool isSideways(const OutputPicture& picture) {
  return picture.quarterTurns % 2 != 0;
}

bool hasAperture(const CVPixelBuffer& b) {
  return b.cropLeft >= 0 && b.cropTop >= 0 && b.cropWidth > 0 && b.cropHeight > 0 &&
         b.cropWidth <= b.width - b.cropLeft && b.cropHeight <= b.height - b.cropTop;
}

}  // namespace

CGSize OutputPicture::naturalSize() const {
  CGSize size{buffer->cropWidth * buffer->pixelAspectRatio,
              static_cast<double>(buffer->cropHeight)};
  if (isSideways(*this)) std::swap(size.width, size.height);
  return size;
}

bool OutputPicture::convertTo(uint8_t* bgra, int width, int height, std::ptrdiff_t stride) const {
  if (width <= 0 || height <= 0 || !hasAperture(*buffer)) return false;
  PictureScaler().scale(*buffer,
                        PictureLayout{width, height, quarterTurns, mirrored, {0, 0, width, height}},
                        Bitmap{bgra, stride, width, height});
  return true;
}

/// The picture that is due, and the layer that showed it; both null when none is to be seen.
struct PictureOutput::Shown {
  CVPixelBufferPtr buffer;
  int quarterTurns = 0;
  bool mirrored = false;
  std::shared_ptr<CALayer> layer;

  /// The first one that `layer` or a layer below it shows.
  [[nodiscard]] static Shown find(const std::shared_ptr<CALayer>& layer, int64_t hostNanoseconds) {
    if (auto picture = layer->picture(hostNanoseconds); picture && picture->buffer) {
      return {std::move(picture->buffer), picture->quarterTurns & 3, picture->mirrored, layer};
    }
    for (const auto& sublayer : layer->sublayers()) {
      if (auto shown = find(sublayer, hostNanoseconds); shown.buffer) return shown;
    }
    return {};
  }
};

std::shared_ptr<PictureOutput> PictureOutput::attach(const std::shared_ptr<PlayerDecorator>& handle,
                                                     std::function<void()> pictureChanged) {
  auto output = std::make_shared<PictureOutput>(Private{}, handle, std::move(pictureChanged));
  if (!output->view_) return output;
  output->root_->layer()->setDisplayRequestHandler([weak = output->weak_from_this()] {
    if (const auto self = weak.lock()) self->displayRequested();
  });
  output->root_->addSubview(output->view_);
  return output;
}

PictureOutput::PictureOutput(Private, const std::shared_ptr<PlayerDecorator>& handle,
                             std::function<void()> pictureChanged)
    : handle_(handle), root_(UIView::create()) {
  if (!handle || !handle->isBound()) return;
  pictureChanged_ = std::move(pictureChanged);
  view_ = handle->outputView();
}

PictureOutput::~PictureOutput() {
  detach();
}

void PictureOutput::detach() {
  if (!view_) return;
  root_->layer()->setDisplayRequestHandler({});
  if (const auto timer = std::exchange(nextLook_, nullptr)) timer->cancel();
  const auto view = std::exchange(view_, nullptr);
  if (view->superview() == root_) view->removeFromSuperview();
  const auto letGo = std::exchange(pictureChanged_, nullptr);  // last: it may hold this
}

bool PictureOutput::isAttached() const {
  const auto handle = handle_.lock();
  return view_ && handle && handle->isBound() && view_->superview() == root_;
}

/// Called in the middle of changes to the tree: what is shown is seen in a turn of its own.
void PictureOutput::displayRequested() {
  if (std::exchange(isLookPosted_, true)) return;
  dispatch_async(dispatch_get_main_queue(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->isLookPosted_ = false;
    self->look();
  });
}

void PictureOutput::look() {
  if (isToldAndNotTaken_) return;
  const Shown shown = shownNow();
  if (!view_) return;
  if (isWhatWasGiven(shown)) return planNextLook(shown);
  isToldAndNotTaken_ = true;
  if (const auto changed = pictureChanged_) changed();  // a copy: it may detach this
}

std::optional<OutputPicture> PictureOutput::picture() {
  const auto self = shared_from_this();  // which the callback may be the last to hold
  isToldAndNotTaken_ = false;
  const Shown shown = shownNow();
  lastGiven_ = shown.buffer;
  gaveNone_ = !shown.buffer;
  planNextLook(shown);
  if (!shown.buffer) return std::nullopt;
  return OutputPicture{shown.buffer, shown.quarterTurns, shown.mirrored};
}

PictureOutput::Shown PictureOutput::shownNow() {
  if (!isAttached()) detach();
  return view_ ? Shown::find(view_->layer(), TimeSource::now()) : Shown{};
}

bool PictureOutput::isWhatWasGiven(const Shown& shown) const {
  return shown.buffer ? shown.buffer == lastGiven_.lock() : gaveNone_;
}

/// Who says when he comes for the next picture spares the player a wake-up for each.
void PictureOutput::planNextLook(const Shown& shown) {
  if (const auto timer = std::exchange(nextLook_, nullptr)) timer->cancel();
  const auto next = shown.layer ? shown.layer->nextPictureTime() : std::nullopt;
  if (!next) return;
  nextLook_ = dispatch_timer_at(*next, dispatch_get_main_queue(), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->look();
  });
}

}  // namespace zaffo
