#include "platform/avfoundation/AVPlayerLayer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/VideoOutput.h"

namespace zaffo {

namespace {

struct Orientation {
  int quarterTurns = 0;
  bool mirrored = false;
};

/// The nearest turn by quarters, with or without a flip before it, that a transform stands for.
Orientation orientationOf(CGAffineTransform t) {
  const bool mirrored = t.a * t.d - t.b * t.c < 0;
  const double a = mirrored ? -t.a : t.a;
  const double b = mirrored ? -t.b : t.b;
  if (std::abs(a) >= std::abs(b)) return {a >= 0 ? 0 : 2, mirrored};
  return {b > 0 ? 1 : 3, mirrored};
}

CGRect fitted(CGSize picture, CGRect bounds, AVLayerVideoGravity gravity) {
  if (gravity == AVLayerVideoGravity::Resize || picture.width <= 0 || picture.height <= 0) {
    return bounds;
  }
  const double horizontal = bounds.size.width / picture.width;
  const double vertical = bounds.size.height / picture.height;
  const double scale = gravity == AVLayerVideoGravity::ResizeAspect
                           ? std::min(horizontal, vertical)
                           : std::max(horizontal, vertical);
  const CGSize size{picture.width * scale, picture.height * scale};
  return CGRectMake(bounds.origin.x + (bounds.size.width - size.width) / 2,
                    bounds.origin.y + (bounds.size.height - size.height) / 2, size.width,
                    size.height);
}

}  // namespace

AVPlayerLayer::AVPlayerLayer() {
  setMasksToBounds(true);
}

AVPlayerLayer::~AVPlayerLayer() = default;

std::shared_ptr<AVPlayerLayer> AVPlayerLayer::create() {
  return std::shared_ptr<AVPlayerLayer>(new AVPlayerLayer);
}

void AVPlayerLayer::setPlayer(std::shared_ptr<AVPlayer> player) {
  if (player == player_) return;
  player_ = std::move(player);
  frameObservation_ = nullptr;
  drawn_ = {};
  firstPresented_ = 0;
  const auto output = player_ ? player_->videoOutput() : nullptr;
  if (output) frameObservation_ = output->observePictures(displayRequest());
  setNeedsDisplay();
}

/// Asks for a draw on the main queue, once between two draws: a layer that nobody draws costs the
/// main thread nothing.
std::function<void()> AVPlayerLayer::displayRequest() {
  return [weakLayer = weak_from_this(), requested = displayRequested_] {
    if (requested->exchange(true)) return;
    dispatch_async(dispatch_get_main_queue(), [weakLayer] {
      if (const auto layer = weakLayer.lock()) layer->setNeedsDisplay();
    });
  };
}

void AVPlayerLayer::setVideoGravity(AVLayerVideoGravity gravity) {
  if (gravity == gravity_) return;
  gravity_ = gravity;
  setNeedsDisplay();
}

bool AVPlayerLayer::isReadyForDisplay() const {
  const auto output = player_ ? player_->videoOutput() : nullptr;
  return output && output->hasPicture();
}

uint64_t AVPlayerLayer::droppedFrames() const {
  const auto output = player_ ? player_->videoOutput() : nullptr;
  return output ? output->droppedFrames() : 0;
}

int64_t AVPlayerLayer::firstPresentedHostTime() const {
  const auto output = player_ ? player_->videoOutput() : nullptr;
  return output && output->itemGeneration() == drawn_.itemGeneration ? firstPresented_ : 0;
}

std::optional<LayerPicture> AVPlayerLayer::picture(int64_t hostNanoseconds) {
  displayRequested_->store(false);
  const auto output = player_ ? player_->videoOutput() : nullptr;
  if (!output) return std::nullopt;
  const auto shown = output->pictureAtHostTime(hostNanoseconds);
  if (shown.itemGeneration != drawn_.itemGeneration) firstPresented_ = 0;
  drawn_ = {shown.buffer, shown.itemGeneration};
  if (!shown.buffer) return std::nullopt;

  const Orientation orientation = orientationOf(shown.preferredTransform);
  CGSize size{shown.buffer->cropWidth * shown.buffer->pixelAspectRatio,
              static_cast<double>(shown.buffer->cropHeight)};
  if (orientation.quarterTurns % 2 != 0) std::swap(size.width, size.height);
  return LayerPicture{shown.buffer, fitted(size, bounds(), gravity_), orientation.quarterTurns,
                      orientation.mirrored};
}

void AVPlayerLayer::didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) {
  if (!buffer || buffer != drawn_.buffer.lock() || buffer == presentedBuffer_.lock()) return;
  presentedBuffer_ = buffer;
  ++presented_;
  if (firstPresented_ == 0) firstPresented_ = hostNanoseconds;
}

}  // namespace zaffo
