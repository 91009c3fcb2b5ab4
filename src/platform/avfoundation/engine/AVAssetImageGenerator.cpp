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
  [[nodiscard]] std::shared_ptr<const AVAssetTrack> videoTrack(NSErrorPtr* error) const;
  [[nodiscard]] std::optional<media::VideoFrame> frameAt(CMTime time, NSErrorPtr* error) const;
  [[nodiscard]] CGImagePtr render(const media::VideoFrame& frame, NSErrorPtr* error) const;

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

std::shared_ptr<const AVAssetTrack> AssetImageGenerator::videoTrack(NSErrorPtr* error) const {
  *error = loadKeysAndWait(*asset_, {"tracks", "duration"});
  if (*error) return nullptr;
  const auto tracks = asset_->tracksWithMediaType(AVMediaTypeVideo);
  const auto source = asset_->sampleSource();
  if (tracks.empty() || !source) {
    *error = makeError(AVErrorNoImageAtTime, "The asset has no picture.");
    return nullptr;
  }
  *error = source->whyNotDecoded(tracks.front()->trackID);
  return *error ? nullptr : tracks.front();
}

std::optional<media::VideoFrame> AssetImageGenerator::frameAt(CMTime time,
                                                              NSErrorPtr* error) const {
  const auto track = videoTrack(error);
  if (!track) return std::nullopt;
  *error = refusal(time, asset_->duration());
  if (*error) return std::nullopt;
  auto cursor = asset_->sampleSource()->openCursor(track->trackID, error);
  auto finder = cursor ? media::FrameFinder::open(std::move(cursor), error) : nullptr;
  if (!finder) return std::nullopt;
  return finder->frameAt(time, error);
}

CGImagePtr AssetImageGenerator::copyCGImageAtTime(CMTime time, CMTime* actualTime,
                                                  NSErrorPtr* error) {
  NSErrorPtr failure;
  const std::optional<media::VideoFrame> frame = frameAt(time, &failure);
  CGImagePtr image = frame ? render(*frame, &failure) : nullptr;
  if (image && actualTime) *actualTime = frame->presentation;
  if (error) *error = image ? nullptr : failure;
  return image;
}

CGImagePtr AssetImageGenerator::render(const media::VideoFrame& frame, NSErrorPtr* error) const {
  const CVPixelBuffer& buffer = *frame.buffer;
  const CGAffineTransform transform =
      asset_->tracksWithMediaType(AVMediaTypeVideo).front()->preferredTransform;
  const bool turns = appliesTransform_ && media::isQuarterTurn(transform);
  const bool swaps = turns && std::abs(transform.b) > 0.5;
  const CGSize bounds = swaps ? CGSize{maximumSize_.height, maximumSize_.width} : maximumSize_;
  const CGSize shown{std::max(1.0, std::round(buffer.cropWidth * buffer.pixelAspectRatio)),
                     static_cast<double>(buffer.cropHeight)};
  const PixelSize size = fitted(shown, bounds);
  CGImagePtr image = media::makeImage(buffer, size.width, size.height, error);
  return turns ? media::turnedImage(std::move(image), transform) : image;
}

}  // namespace

std::shared_ptr<AVAssetImageGenerator> AVAssetImageGenerator::assetImageGeneratorWithAsset(
    std::shared_ptr<AVAsset> asset) {
  return std::make_shared<AssetImageGenerator>(std::move(asset));
}

}  // namespace zaffo
