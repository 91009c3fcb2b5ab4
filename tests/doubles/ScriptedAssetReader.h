// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVAssetReader.h"

namespace zaffo {

/// A sample of one byte and of nothing real; a marker when it has no format.
inline std::shared_ptr<CMSampleBuffer> makeScriptedSample(CMTime presentation,
                                                          bool hasFormat = true) {
  class Block final : public CMBlockBuffer {
   public:
    [[nodiscard]] std::span<const uint8_t> bytes() const override { return {&byte_, 1}; }

   private:
    uint8_t byte_ = 0;
  };
  class Format final : public CMFormatDescription {
   public:
    [[nodiscard]] const std::string& codec() const override { return codec_; }
    [[nodiscard]] int width() const override { return 16; }
    [[nodiscard]] int height() const override { return 16; }

   private:
    const std::string codec_ = "scripted";
  };
  const std::shared_ptr<Format> format = hasFormat ? std::make_shared<Format>() : nullptr;
  return CMSampleBuffer::create(std::make_shared<Block>(), format,
                                {presentation, presentation, CMTimeMake(1, 4)});
}

/// A reader, and the one output it makes, that gives the samples and statuses which a test puts
/// into it. Writes what it is told on standard output, among the lines of whoever uses it.
class ScriptedAssetReader final : public AVAssetReader {
 public:
  class Output;

  AVAssetReaderStatus statusValue = AVAssetReaderStatus::Unknown;
  AVAssetReaderStatus statusOnceStarted = AVAssetReaderStatus::Reading;
  /// The status when a sample was asked for and none is left.
  AVAssetReaderStatus statusAtEnd = AVAssetReaderStatus::Completed;
  NSErrorPtr errorValue;
  bool acceptsOutput = true;
  CMTimeRange timeRange = kCMTimeRangeInvalid;
  std::vector<std::shared_ptr<CMSampleBuffer>> samples;  ///< first to last
  std::function<void(CMTime start)> onStartTime;         ///< told the start of the time range
  std::function<void()> onCopy;                          ///< may throw
  std::function<void()> onCancel;
  int copies = 0;
  int held = 1'000'000;         ///< samples that can be had; the others have not come yet
  std::function<void()> ready;  ///< told its output, to be called when more have

  [[nodiscard]] AVAssetReaderStatus status() const override { return statusValue; }
  [[nodiscard]] NSErrorPtr error() const override { return errorValue; }
  void setTimeRange(CMTimeRange range) override {
    std::printf("reader time range\n");
    timeRange = range;
    if (onStartTime) onStartTime(range.start);
  }
  [[nodiscard]] bool canAddOutput(const std::shared_ptr<AVAssetReaderOutput>&) override {
    std::printf("reader can add output\n");
    return acceptsOutput;
  }
  void addOutput(std::shared_ptr<AVAssetReaderOutput>) override {
    std::printf("reader add output\n");
  }
  bool startReading() override {
    std::printf("reader start\n");
    statusValue = statusOnceStarted;
    return statusValue == AVAssetReaderStatus::Reading;
  }
  void cancelReading() override {
    std::printf("reader cancel\n");
    statusValue = AVAssetReaderStatus::Cancelled;
    if (onCancel) onCancel();
  }

  /// So many samples more have come.
  void bring(int count) {
    held += count;
    if (ready) ready();
  }
  [[nodiscard]] bool hasNext() const { return static_cast<int>(next_) < held; }
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNext() {
    ++copies;
    if (onCopy) onCopy();
    if (next_ < samples.size()) return samples[next_++];
    statusValue = statusAtEnd;
    return nullptr;
  }

 private:
  std::size_t next_ = 0;
};

class ScriptedAssetReader::Output final : public AVAssetReaderOutput {
 public:
  explicit Output(std::weak_ptr<ScriptedAssetReader> reader) : reader_(std::move(reader)) {}
  void setAlwaysCopiesSampleData(bool alwaysCopies) override {
    std::printf("output copies data: %d\n", alwaysCopies ? 1 : 0);
  }
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBuffer() override {
    const auto reader = reader_.lock();
    return reader ? reader->copyNext() : nullptr;
  }
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> copyNextSampleBufferIfReady(
      bool& isComing) override {
    const auto reader = reader_.lock();
    isComing = reader && !reader->hasNext();
    return isComing ? nullptr : copyNextSampleBuffer();
  }
  void setReadyHandler(std::function<void()> handler) override {
    if (const auto reader = reader_.lock()) reader->ready = std::move(handler);
  }

 private:
  const std::weak_ptr<ScriptedAssetReader> reader_;
};

}  // namespace zaffo
