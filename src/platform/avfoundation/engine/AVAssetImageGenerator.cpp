// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAssetImageGenerator.h"

#include <utility>

#include "platform/avfoundation/engine/ImageLine.h"
#include "platform/avfoundation/engine/ImageRequest.h"
#include "platform/dispatch/OutsideSignal.h"
#include "platform/foundation/MakeError.h"

namespace zaffo {
namespace {

class AssetImageGenerator final : public AVAssetImageGenerator {
 public:
  explicit AssetImageGenerator(std::shared_ptr<AVAsset> asset) : asset_(std::move(asset)) {}

  void setMaximumSize(CGSize size) override { style_.maximumSize = size; }
  void setAppliesPreferredTrackTransform(bool applies) override {
    style_.appliesTransform = applies;
  }
  CGImagePtr copyCGImageAtTime(CMTime time, CMTime* actualTime, NSErrorPtr* error) override;
  void generateCGImageAsynchronouslyForTime(CMTime time, ImageCompletion completion) override;

 private:
  const std::shared_ptr<AVAsset> asset_;
  ImageStyle style_;
};

/// Made here and now, for the line may be full of those who wait for it.
CGImagePtr AssetImageGenerator::copyCGImageAtTime(CMTime time, CMTime* actualTime,
                                                  NSErrorPtr* error) {
  ImageRequest request(asset_, time, style_);
  const auto more = std::make_shared<OutsideSignal>();
  request.setReadyHandler([more] { more->announce(); });
  auto outcome = media::Outcome::Working;
  while (outcome == media::Outcome::Working || outcome == media::Outcome::Again) {
    if (outcome == media::Outcome::Again) more->wait();
    outcome = request.step();
  }
  if (request.image() && actualTime) *actualTime = request.actualTime();
  setError(error, request.error());
  return request.image();
}

void AssetImageGenerator::generateCGImageAsynchronouslyForTime(CMTime time,
                                                               ImageCompletion completion) {
  ImageLine::shared().make(std::make_unique<ImageRequest>(asset_, time, style_),
                           [completion = std::move(completion)](const ImageRequest& made) {
                             if (completion)
                               completion(made.image(), made.actualTime(), made.error());
                           });
}

}  // namespace

void AVAssetImageGenerator::generateCGImageAsynchronouslyForTime(CMTime time,
                                                                 ImageCompletion completion) {
  NSErrorPtr error;
  const CGImagePtr image = copyCGImageAtTime(time, nullptr, &error);
  if (completion) completion(image, image ? time : kCMTimeInvalid, error);
}

std::shared_ptr<AVAssetImageGenerator> AVAssetImageGenerator::assetImageGeneratorWithAsset(
    std::shared_ptr<AVAsset> asset) {
  return std::make_shared<AssetImageGenerator>(std::move(asset));
}

}  // namespace zaffo
