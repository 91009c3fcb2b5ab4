// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/ImageRequest.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "platform/avfoundation/engine/AssetKeys.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/codec/StillImage.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {

using media::Outcome;

namespace {

// A function, for workers may still need them while the process's statics go away.
std::vector<std::string> keysOfImage() {
  return {"tracks", "duration"};
}

struct PixelSize {
  int width;
  int height;
};

/// The largest size of the same shape that neither exceeds `bounds` nor enlarges.
PixelSize fitted(CGSize size, CGSize bounds) {
  double scale = 1;
  if (bounds.width > 0) scale = std::min(scale, bounds.width / size.width);
  if (bounds.height > 0) scale = std::min(scale, bounds.height / size.height);
  const auto side = [scale](double length) {
    return std::max(1, static_cast<int>(std::lround(length * scale)));
  };
  return {side(size.width), side(size.height)};
}

Result<CGImagePtr> imageOf(const CVPixelBuffer& buffer, CGAffineTransform transform,
                           const ImageStyle& style) {
  const bool turns = style.appliesTransform && media::isQuarterTurn(transform);
  const bool swaps = turns && std::abs(transform.b) > 0.5;
  const CGSize most = style.maximumSize;
  const CGSize bounds = swaps ? CGSize{most.height, most.width} : most;
  const CGSize shown{std::max(1.0, std::round(buffer.cropWidth * buffer.pixelAspectRatio)),
                     static_cast<double>(buffer.cropHeight)};
  const PixelSize size = fitted(shown, bounds);
  auto image = media::makeImage(buffer, size.width, size.height);
  if (image && turns) return media::turnedImage(*std::move(image), transform);
  return image;
}

}  // namespace

Outcome ImageRequest::step() {
  switch (stage_) {
    case Stage::Begin:
      return begin();
    case Stage::Loading:
      return openTrack();
    case Stage::Finding:
      return find();
    case Stage::Over:
      break;
  }
  return image_ ? Outcome::Ready : Outcome::Error;
}

Outcome ImageRequest::begin() {
  stage_ = Stage::Loading;
  if (areLoaded(*asset_, keysOfImage())) return Outcome::Working;
  asset_->loadValuesAsynchronouslyForKeys(keysOfImage(), ready_);
  return Outcome::Again;
}

Outcome ImageRequest::openTrack() {
  if (NSErrorPtr reason = whyNoTrack()) return fail(std::move(reason));
  const auto track = asset_->tracksWithMediaType(AVMediaTypeVideo).front();
  auto cursor = asset_->sampleSource()->openCursor(track->trackID);
  if (!cursor) return fail(cursor.error());
  finder_ = std::make_unique<media::FrameFinder>(*std::move(cursor));
  finder_->setReadyHandler(ready_);
  finder_->begin(time_);
  stage_ = Stage::Finding;
  return Outcome::Working;
}

/// Why the asset shows nothing at the time; null when it may.
NSErrorPtr ImageRequest::whyNoTrack() const {
  if (NSErrorPtr failure = whyNotLoaded(*asset_, keysOfImage())) return failure;
  const auto tracks = asset_->tracksWithMediaType(AVMediaTypeVideo);
  const auto source = asset_->sampleSource();
  if (tracks.empty() || !source) {
    return makeError(AVErrorNoImageAtTime, "The asset has no picture.");
  }
  if (NSErrorPtr reason = source->whyNotDecoded(tracks.front()->trackID)) return reason;
  const CMTime duration = asset_->duration();
  const bool isBeyond = !CMTIME_IS_NUMERIC(time_) || (duration > kCMTimeZero && time_ >= duration);
  if (!isBeyond) return nullptr;
  return makeError(AVErrorNoImageAtTime,
                   "The asset shows no picture at " + CMTimeDescription(time_) + ".");
}

Outcome ImageRequest::find() {
  media::VideoFrame frame;
  const Outcome outcome = finder_->step(frame);
  if (outcome == Outcome::Ready) return draw(frame);
  return outcome == Outcome::Error ? fail(finder_->error()) : outcome;
}

Outcome ImageRequest::draw(const media::VideoFrame& frame) {
  const auto transform = asset_->tracksWithMediaType(AVMediaTypeVideo).front()->preferredTransform;
  auto image = imageOf(*frame.buffer, transform, style_);
  if (!image) return fail(image.error());
  image_ = *std::move(image);
  actualTime_ = frame.presentation;
  finder_.reset();
  stage_ = Stage::Over;
  return Outcome::Ready;
}

Outcome ImageRequest::fail(NSErrorPtr error) {
  error_ = std::move(error);
  finder_.reset();
  stage_ = Stage::Over;
  return Outcome::Error;
}

}  // namespace zaffo
