// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "platform/avfoundation/AVAsset.h"
#include "platform/media/video/FrameFinder.h"
#include "platform/uikit/CGImage.h"

namespace zaffo {

/// What an image of a frame is to be like.
struct ImageStyle {
  CGSize maximumSize;             ///< in pixels; a side of 0 is unbounded
  bool appliesTransform = false;  ///< turned upright by the track's transform
};

/// The image of what an asset shows at a time: loads the asset if needed, finds the frame, decodes
/// and draws it, in steps that never wait. Thread: one at a time.
class ImageRequest {
 public:
  ImageRequest(std::shared_ptr<AVAsset> asset, CMTime time, ImageStyle style)
      : asset_(std::move(asset)), time_(time), style_(style) {}

  /// Called, on any thread, when step() may give more than Again. Set before the first step.
  void setReadyHandler(std::function<void()> handler) { ready_ = std::move(handler); }

  /// Ready when there is the image, Error when there will be none.
  [[nodiscard]] media::Outcome step();

  [[nodiscard]] const CGImagePtr& image() const { return image_; }
  /// The presentation of the frame that it shows; invalid where there is none.
  [[nodiscard]] CMTime actualTime() const { return actualTime_; }
  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

 private:
  enum class Stage { Begin, Loading, Finding, Over };

  [[nodiscard]] media::Outcome begin();
  [[nodiscard]] media::Outcome openTrack();
  [[nodiscard]] NSErrorPtr whyNoTrack() const;
  [[nodiscard]] media::Outcome find();
  [[nodiscard]] media::Outcome draw(const media::VideoFrame& frame);
  [[nodiscard]] media::Outcome fail(NSErrorPtr error);

  const std::shared_ptr<AVAsset> asset_;
  const CMTime time_;
  const ImageStyle style_;
  std::function<void()> ready_ = [] {};
  Stage stage_ = Stage::Begin;
  std::unique_ptr<media::FrameFinder> finder_;
  CGImagePtr image_;
  CMTime actualTime_ = kCMTimeInvalid;
  NSErrorPtr error_;
};

}  // namespace zaffo
