// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAssetImageGenerator.h"

#include <algorithm>
#include <cmath>

#include "platform/avfoundation/engine/AssetKeys.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/codec/StillImage.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/video/FrameFinder.h"

namespace zaffo {
namespace {

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

class AssetImageGenerator : public AVAssetImageGenerator {
 public:
  explicit AssetImageGenerator(std::shared_ptr<AVAsset> asset) : asset_(std::move(asset)) {}

  void setMaximumSize(CGSize size) override { maximumSize_ = size; }
  void setAppliesPreferredTrackTransform(bool applies) override { appliesTransform_ = applies; }
  CGImagePtr copyCGImageAtTime(CMTime time, CMTime* actualTime, NSErrorPtr* error) override;

 private:
  [[nodiscard]] Result<std::shared_ptr<const AVAssetTrack>> videoTrack() const;
  [[nodiscard]] Result<media::VideoFrame> frameAt(CMTime time) const;
  [[nodiscard]] Result<CGImagePtr> render(const media::VideoFrame& frame) const;

  const std::shared_ptr<AVAsset> asset_;
  CGSize maximumSize_;
  bool appliesTransform_ = false;
};

/// Why `time` shows nothing of an asset of length `duration`; null when it does.
NSErrorPtr refusal(CMTime time, CMTime duration) {
  const bool beyond = !CMTIME_IS_NUMERIC(time) || (duration > kCMTimeZero && time >= duration);
  if (!beyond) return nullptr;
  return makeError(AVErrorNoImageAtTime,
                   "The asset shows no picture at " + CMTimeDescription(time) + ".");
}

Result<std::shared_ptr<const AVAssetTrack>> AssetImageGenerator::videoTrack() const {
  if (NSErrorPtr failure = loadKeysAndWait(*asset_, {"tracks", "duration"})) return failure;
  const auto tracks = asset_->tracksWithMediaType(AVMediaTypeVideo);
  const auto source = asset_->sampleSource();
  if (tracks.empty() || !source) {
    return makeError(AVErrorNoImageAtTime, "The asset has no picture.");
  }
  if (NSErrorPtr reason = source->whyNotDecoded(tracks.front()->trackID)) return reason;
  return tracks.front();
}

Result<media::VideoFrame> AssetImageGenerator::frameAt(CMTime time) const {
  const auto track = videoTrack();
  if (!track) return track.error();
  if (NSErrorPtr reason = refusal(time, asset_->duration())) return reason;
  auto cursor = asset_->sampleSource()->openCursor((*track)->trackID);
  if (!cursor) return cursor.error();
  const auto finder = media::FrameFinder::open(*std::move(cursor));
  if (!finder) return finder.error();
  return (*finder)->frameAt(time);
}

CGImagePtr AssetImageGenerator::copyCGImageAtTime(CMTime time, CMTime* actualTime,
                                                  NSErrorPtr* error) {
  const Result<media::VideoFrame> frame = frameAt(time);
  Result<CGImagePtr> image = frame ? render(*frame) : frame.error();
  if (image && actualTime) *actualTime = frame->presentation;
  if (error) *error = image.error();
  return std::move(image).valueOr(nullptr);
}

Result<CGImagePtr> AssetImageGenerator::render(const media::VideoFrame& frame) const {
  const CVPixelBuffer& buffer = *frame.buffer;
  const CGAffineTransform transform =
      asset_->tracksWithMediaType(AVMediaTypeVideo).front()->preferredTransform;
  const bool turns = appliesTransform_ && media::isQuarterTurn(transform);
  const bool swaps = turns && std::abs(transform.b) > 0.5;
  const CGSize bounds = swaps ? CGSize{maximumSize_.height, maximumSize_.width} : maximumSize_;
  const CGSize shown{std::max(1.0, std::round(buffer.cropWidth * buffer.pixelAspectRatio)),
                     static_cast<double>(buffer.cropHeight)};
  const PixelSize size = fitted(shown, bounds);
  auto image = media::makeImage(buffer, size.width, size.height);
  if (image && turns) return media::turnedImage(*std::move(image), transform);
  return image;
}

}  // namespace

std::shared_ptr<AVAssetImageGenerator> AVAssetImageGenerator::assetImageGeneratorWithAsset(
    std::shared_ptr<AVAsset> asset) {
  return std::make_shared<AssetImageGenerator>(std::move(asset));
}

}  // namespace zaffo
