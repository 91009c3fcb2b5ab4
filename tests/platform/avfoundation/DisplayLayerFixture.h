// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "doubles/ManualTime.h"
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"
#include "platform/media/Decoding.h"
#include "platform/media/SampleBuffers.h"

namespace zaffo {

/// A display layer in a tree, driven as a session drives it, with time moved by hand.
class DisplayLayerFixture : public testing::Test {
 protected:
  DisplayLayerFixture() {
    root_->setDisplayRequestHandler([this] { ++requests_; });
    makeLayer();
  }

  void makeLayer() {
    layer_ = AVSampleBufferDisplayLayer::create();
    layer_->setControlTimebase(timebase_);
    layer_->setBounds(CGRectMake(0, 0, 400, 400));
    root_->addSublayer(layer_);
  }

  /// The picture's samples of a clip in decode order.
  [[nodiscard]] static std::vector<std::shared_ptr<CMSampleBuffer>> buffers(
      const std::string& path) {
    const auto source = media::openClip(path);
    const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
    const auto format = media::makeFormatDescription(cursor->codecParameters());
    std::vector<std::shared_ptr<CMSampleBuffer>> buffers;
    for (media::Sample& sample : media::readAll(*cursor)) {
      buffers.push_back(media::makeSampleBuffer(std::move(sample), format));
    }
    return buffers;
  }

  /// Enqueues a clip from its start at the layer's request, the first sample marked.
  void start(const std::string& path) {
    timebase_->setRate(0);
    timebase_->setTime(kCMTimeZero);
    auto left = std::make_shared<std::vector<std::shared_ptr<CMSampleBuffer>>>(buffers(path));
    left->front()->setResetsDecoderBeforeDecoding(true);
    left->front()->sampleAttachmentsArray(true)->front().displayImmediately = true;
    std::reverse(left->begin(), left->end());
    layer_->requestMediaDataWhenReadyOnQueue(
        queue_, [weakLayer = std::weak_ptr(layer_), calls = calls_, left] {
          const auto layer = weakLayer.lock();
          ++*calls;
          while (layer && layer->isReadyForMoreMediaData()) {
            if (left->empty()) return layer->stopRequestingMediaData();
            layer->enqueueSampleBuffer(std::move(left->back()));
            left->pop_back();
          }
        });
  }

  [[nodiscard]] std::optional<LayerPicture> draw() { return layer_->picture(TimeSource::now()); }
  /// The number of the frame on show now.
  [[nodiscard]] std::optional<int> shown() {
    const auto picture = draw();
    return picture ? test::frameNumber(picture->buffer) : std::nullopt;
  }

  ManualTime time_;
  std::shared_ptr<CMTimebase> timebase_ = CMTimebase::create(CMClockGetHostTimeClock());
  std::shared_ptr<CALayer> root_ = CALayer::create();
  std::shared_ptr<AVSampleBufferDisplayLayer> layer_;
  DispatchQueuePtr queue_ = dispatch_queue_create("test.session");
  std::shared_ptr<int> calls_ = std::make_shared<int>(0);
  int requests_ = 0;
};

}  // namespace zaffo
