// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVPlayerLayer.h"

#include <utility>

#include "platform/avfoundation/engine/DisplayRequest.h"
#include "platform/avfoundation/engine/PicturePlacement.h"
#include "platform/avfoundation/engine/PresentedPictures.h"
#include "platform/media/playback/VideoOutput.h"

namespace zaffo {

struct AVPlayerLayer::Drawing {
  DisplayRequest request;
  PresentedPictures presentation;
  uint64_t itemGeneration = 0;  ///< of the picture that was given last
};

AVPlayerLayer::AVPlayerLayer() : drawing_(std::make_unique<Drawing>()) {
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
  drawing_->itemGeneration = 0;
  drawing_->presentation.forgetGiven();
  drawing_->presentation.beginAnew();
  const auto output = player_ ? player_->videoOutput() : nullptr;
  if (output)
    frameObservation_ = output->observePictures(drawing_->request.forLayer(weak_from_this()));
  setNeedsDisplay();
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

uint64_t AVPlayerLayer::presentedFrames() const {
  return drawing_->presentation.count();
}

int64_t AVPlayerLayer::firstPresentedHostTime() const {
  const auto output = player_ ? player_->videoOutput() : nullptr;
  const bool isOfItem = output && output->itemGeneration() == drawing_->itemGeneration;
  return isOfItem ? drawing_->presentation.firstHostTime() : 0;
}

std::optional<LayerPicture> AVPlayerLayer::picture(int64_t hostNanoseconds) {
  drawing_->request.noteDraw();
  const auto output = player_ ? player_->videoOutput() : nullptr;
  if (!output) return std::nullopt;
  const auto shown = output->pictureAtHostTime(hostNanoseconds);
  if (shown.itemGeneration != drawing_->itemGeneration) drawing_->presentation.beginAnew();
  drawing_->itemGeneration = shown.itemGeneration;
  drawing_->presentation.noteGiven(shown.buffer);
  if (!shown.buffer) return std::nullopt;
  return placePicture(shown.buffer, shown.preferredTransform, bounds(), gravity_);
}

std::optional<int64_t> AVPlayerLayer::nextPictureTime() {
  const auto output = player_ ? player_->videoOutput() : nullptr;
  return output ? output->planNextPicture() : std::nullopt;
}

void AVPlayerLayer::didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) {
  drawing_->presentation.notePresented(buffer, hostNanoseconds);
}

}  // namespace zaffo
