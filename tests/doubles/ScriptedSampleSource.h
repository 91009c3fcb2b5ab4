// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// What a ScriptedSampleSource gives. One cursor reads it. Thread: any.
struct SampleScript {
  struct Step {
    Outcome outcome = Outcome::Ready;
    Sample sample;
    int width = 0;  ///< of the format from this sample on; 0 to go on as before
  };

  /// Adds a sample, times in frames at 30 a second.
  Step& add(int decode, int presentation) {
    Step step;
    step.sample.packet.reset(av_packet_alloc());
    step.sample.packet->dts = decode;
    (void)av_new_packet(step.sample.packet.get(), 4);
    step.sample.decode = CMTimeMake(decode, 30);
    step.sample.presentation = CMTimeMake(presentation, 30);
    step.sample.duration = CMTimeMake(1, 30);
    const std::lock_guard lock(mutex);
    step.sample.sync = steps.empty();
    return steps.emplace_back(std::move(step));
  }

  std::mutex mutex;
  std::deque<Step> steps;  ///< Again when there is none and `open`, else End
  bool open = false;
  int reads = 0;
  std::vector<CMTime> seeks;
  bool refusesSeeks = false;
  std::function<void()> ready;
};

class ScriptedSampleCursor final : public SampleCursor {
 public:
  explicit ScriptedSampleCursor(std::shared_ptr<SampleScript> script)
      : script_(std::move(script)), parameters_(avcodec_parameters_alloc()) {
    parameters_->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters_->codec_id = AV_CODEC_ID_H264;
    parameters_->width = 16;
  }

  Outcome next(Sample& sample) override {
    const std::lock_guard lock(script_->mutex);
    ++script_->reads;
    if (script_->steps.empty()) return script_->open ? Outcome::Again : Outcome::End;
    SampleScript::Step step = std::move(script_->steps.front());
    script_->steps.pop_front();
    if (step.outcome == Outcome::Error) error_ = makeError(AVErrorUnknown, "scripted");
    if (step.width > 0) parameters_->width = step.width;
    sample = std::move(step.sample);
    return step.outcome;
  }
  bool seek(CMTime time) override {
    script_->seeks.push_back(time);
    if (script_->refusesSeeks) error_ = makeError(AVErrorUnknown, "scripted");
    return !script_->refusesSeeks;
  }
  NSErrorPtr error() const override { return error_; }
  const AVCodecParameters& codecParameters() const override { return *parameters_; }
  void setReadyHandler(std::function<void()> handler) override {
    const std::lock_guard lock(script_->mutex);
    script_->ready = std::move(handler);
  }

 private:
  const std::shared_ptr<SampleScript> script_;
  const CodecParametersPtr parameters_;
  NSErrorPtr error_;
};

/// A source of one track of pictures, of ten seconds, that gives what a test puts into its script.
class ScriptedSampleSource final : public SampleSource {
 public:
  ScriptedSampleSource() {
    AVAssetTrack track;
    track.trackID = 1;
    track.timeRange = {kCMTimeZero, CMTimeMake(10, 1)};
    tracks_.push_back(std::make_shared<const AVAssetTrack>(track));
  }

  const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  CMTime duration() const override { return CMTimeMake(10, 1); }
  Result<std::unique_ptr<SampleCursor>> openCursor(int /*trackID*/) override {
    ++cursors;
    if (!refusal) return std::make_unique<ScriptedSampleCursor>(script);
    return refusal;
  }

  const std::shared_ptr<SampleScript> script = std::make_shared<SampleScript>();
  NSErrorPtr refusal;
  int cursors = 0;

 private:
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
};

}  // namespace zaffo::media
