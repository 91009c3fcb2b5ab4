// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "fast/PlaybackSessionFactory.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {

/// A factory whose readers read files, but so slowly that whoever waits for their samples has used
/// up each before the next one comes. Counts them.
class SlowReading {
 public:
  [[nodiscard]] PlaybackSessionFactory factory() const {
    PlaybackSessionFactory factory;
    factory.assetReaderWithAsset = [](std::shared_ptr<AVAsset> asset,
                                      NSErrorPtr* error) -> std::shared_ptr<AVAssetReader> {
      auto reader = AVAssetReader::create(std::move(asset), error);
      return reader ? std::make_shared<Reader>(std::move(reader)) : nullptr;
    };
    factory.assetReaderTrackOutputWithTrack = [samples = samples_](
                                                  std::shared_ptr<const AVAssetTrack> track) {
      return std::make_shared<Output>(AVAssetReaderTrackOutput::create(std::move(track)), samples);
    };
    return factory;
  }
  /// Read so far, by all readers.
  [[nodiscard]] int samples() const { return *samples_; }

 private:
  class Output final : public AVAssetReaderOutput {
   public:
    Output(std::shared_ptr<AVAssetReaderOutput> inner, std::shared_ptr<std::atomic<int>> samples)
        : inner_(std::move(inner)), samples_(std::move(samples)) {}
    void setAlwaysCopiesSampleData(bool copies) override {
      inner_->setAlwaysCopiesSampleData(copies);
    }
    [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBuffer() override {
      letOthersWork();
      auto sample = inner_->copyNextSampleBuffer();
      ++*samples_;
      return sample;
    }
    [[nodiscard]] const std::shared_ptr<AVAssetReaderOutput>& inner() const { return inner_; }

   private:
    /// Until no worker has anything better to do, or as long as a slow disk takes.
    static void letOthersWork() {
      const auto idle = std::make_shared<std::promise<void>>();
      dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND),
                     [idle] { idle->set_value(); });
      idle->get_future().wait_for(std::chrono::milliseconds(5));
    }

    const std::shared_ptr<AVAssetReaderOutput> inner_;
    const std::shared_ptr<std::atomic<int>> samples_;
  };

  class Reader final : public AVAssetReader {
   public:
    explicit Reader(std::shared_ptr<AVAssetReader> inner) : inner_(std::move(inner)) {}
    [[nodiscard]] AVAssetReaderStatus status() const override { return inner_->status(); }
    [[nodiscard]] NSErrorPtr error() const override { return inner_->error(); }
    void setTimeRange(CMTimeRange range) override { inner_->setTimeRange(range); }
    [[nodiscard]] bool canAddOutput(const std::shared_ptr<AVAssetReaderOutput>& output) override {
      return inner_->canAddOutput(std::static_pointer_cast<Output>(output)->inner());
    }
    void addOutput(std::shared_ptr<AVAssetReaderOutput> output) override {
      inner_->addOutput(std::static_pointer_cast<Output>(output)->inner());
    }
    bool startReading() override { return inner_->startReading(); }
    void cancelReading() override { inner_->cancelReading(); }

   private:
    const std::shared_ptr<AVAssetReader> inner_;
  };

  const std::shared_ptr<std::atomic<int>> samples_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace zaffo
