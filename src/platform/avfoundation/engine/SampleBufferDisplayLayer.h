// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"
#include "platform/avfoundation/engine/DisplayRequest.h"
#include "platform/avfoundation/engine/LayerStatus.h"
#include "platform/avfoundation/engine/PresentedPictures.h"
#include "platform/media/playback/SampleRenderer.h"

namespace zaffo {

/// The layer over the engine's renderer: samples go down, pictures come up when they are drawn.
class SampleBufferDisplayLayer final : public AVSampleBufferDisplayLayer {
 public:
  [[nodiscard]] static std::shared_ptr<SampleBufferDisplayLayer> create();
  ~SampleBufferDisplayLayer() override;

  [[nodiscard]] std::shared_ptr<CMTimebase> controlTimebase() const override;
  void setControlTimebase(std::shared_ptr<CMTimebase> timebase) override;
  [[nodiscard]] AVLayerVideoGravity videoGravity() const override;
  void setVideoGravity(AVLayerVideoGravity gravity) override;
  void setPreferredTransform(CGAffineTransform transform) override;

  void enqueueSampleBuffer(std::shared_ptr<CMSampleBuffer> sample) override;
  void flush() override;
  void flushAndRemoveImage() override;
  uint64_t removedImages() const override { return removedImages_; }
  [[nodiscard]] bool isReadyForMoreMediaData() const override;
  void requestMediaDataWhenReadyOnQueue(DispatchQueuePtr queue,
                                        std::function<void()> block) override;
  void stopRequestingMediaData() override;
  void expectMediaData() override;

  [[nodiscard]] AVQueuedSampleBufferRenderingStatus status() const override {
    return status_->told();
  }
  [[nodiscard]] NSErrorPtr error() const override;
  [[nodiscard]] KeyValueObservation observeStatus(std::function<void()> changed) override;

  [[nodiscard]] bool isReadyForDisplay() const override;
  [[nodiscard]] uint64_t presentedFrames() const override { return presentation_.count(); }
  [[nodiscard]] uint64_t droppedFrames() const override;
  [[nodiscard]] int64_t firstPresentedHostTime() const override {
    return presentation_.firstHostTime();
  }

  [[nodiscard]] std::optional<LayerPicture> picture(int64_t hostNanoseconds) override;
  [[nodiscard]] std::optional<int64_t> nextPictureTime() override;
  void didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds) override;

 private:
  SampleBufferDisplayLayer();
  /// How the picture lies in the layer, but for the layer's bounds.
  struct Placement {
    AVLayerVideoGravity gravity = AVLayerVideoGravityResizeAspect;
    CGAffineTransform transform;
  };
  [[nodiscard]] Placement placement() const;
  void askForDraw();

  std::shared_ptr<media::SampleRenderer> renderer_;
  /// What is told of the renderer's status.
  std::shared_ptr<LayerStatus> status_;
  mutable Mutex timebaseMutex_;
  std::shared_ptr<CMTimebase> timebase_ ZAFFO_GUARDED_BY(timebaseMutex_);
  mutable Mutex placementMutex_;
  AVLayerVideoGravity gravity_ ZAFFO_GUARDED_BY(placementMutex_) = AVLayerVideoGravityResizeAspect;
  /// When it was set.
  std::optional<CGAffineTransform> transform_ ZAFFO_GUARDED_BY(placementMutex_);
  std::shared_ptr<const CMFormatDescription> format_ ZAFFO_GUARDED_BY(placementMutex_);
  DisplayRequest displayRequest_;
  PresentedPictures presentation_;
  std::atomic<uint64_t> removedImages_{0};
};

}  // namespace zaffo
