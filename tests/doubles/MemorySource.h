// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

/// A copy that shares the bytes.
inline Sample copyOf(const Sample& sample) {
  Sample copy;
  copy.packet.reset(av_packet_clone(sample.packet.get()));
  copy.presentation = sample.presentation;
  copy.decode = sample.decode;
  copy.duration = sample.duration;
  copy.sync = sample.sync;
  copy.decodeOnly = sample.decodeOnly;
  copy.isDiscontinuity = sample.isDiscontinuity;
  copy.heardFrom = sample.heardFrom;
  copy.heardUntil = sample.heardUntil;
  return copy;
}

/// A source whose samples lie in memory, with cursors that seek as those of a file do, and troubles
/// to order. Tracks are added before anything is read. Thread: any.
class MemorySource final : public SampleSource, public std::enable_shared_from_this<MemorySource> {
 public:
  struct Track {
    AVMediaType type = AVMediaTypeVideo;
    CodecParametersPtr parameters;
    std::vector<Sample> samples;
    std::map<std::size_t, const AVCodecParameters*> formats;  ///< from a sample on, others
  };

  /// Returns its ID.
  int add(Track track) {
    auto description = std::make_shared<AVAssetTrack>();
    description->trackID = static_cast<int>(tracks_.size()) + 1;
    description->mediaType = track.type;
    description->timeRange = {kCMTimeZero, duration_};
    tracks_.push_back(std::move(description));
    data_.push_back(std::make_unique<Track>(std::move(track)));
    return static_cast<int>(tracks_.size());
  }
  void setDuration(CMTime duration) { duration_ = duration; }

  /// So many samples more can be read until cursors have to wait.
  void let(int samples) {
    std::function<void()> ready;
    {
      const std::lock_guard lock(stateMutex_);
      left_ = samples;
      if (std::exchange(waits_, false)) ready = ready_;
    }
    if (ready) ready();
  }
  /// Reading ends with an error behind so many samples of a track.
  void failBehind(std::size_t samples) { failsBehind_ = samples; }
  void refuseCursors() { refusesCursors_ = true; }
  void refuseSeeks() { refusesSeeks_ = true; }
  /// What emptyUntil() says for a track.
  void setEmptyUntil(std::function<CMTime(int trackID, CMTime time)> answer) {
    emptyUntil_ = std::move(answer);
  }

  [[nodiscard]] int cursors() const { return cursors_; }
  [[nodiscard]] int seeks() const { return seeks_; }
  /// Samples that were read, again after a seek included.
  [[nodiscard]] int reads() const { return reads_; }

  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  [[nodiscard]] CMTime duration() const override { return duration_; }
  [[nodiscard]] CMTime emptyUntil(int trackID, CMTime time) const override {
    return emptyUntil_ ? emptyUntil_(trackID, time) : time;
  }
  Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) override {
    ++cursors_;
    if (!refusesCursors_) return std::make_unique<Cursor>(shared_from_this(), trackID);
    return makeError(AVErrorUnknown, "refused");
  }

 private:
  class Cursor final : public SampleCursor {
   public:
    Cursor(std::shared_ptr<MemorySource> source, int trackID)
        : source_(std::move(source)),
          track_(*source_->data_[static_cast<std::size_t>(trackID - 1)]),
          parameters_(track_.parameters.get()) {}

    Outcome next(Sample& sample) override {
      if (error_) return Outcome::Error;
      if (next_ >= source_->failsBehind_) {
        error_ = makeError(AVErrorUnknown, "torn");
        return Outcome::Error;
      }
      if (next_ == track_.samples.size()) return Outcome::End;
      if (!source_->takesOne()) return Outcome::Again;
      if (const auto format = track_.formats.find(next_); format != track_.formats.end()) {
        parameters_ = format->second;
      }
      sample = copyOf(track_.samples[next_++]);
      return Outcome::Ready;
    }
    bool seek(CMTime time) override {
      ++source_->seeks_;
      if (source_->refusesSeeks_) error_ = makeError(AVErrorUnknown, "refused");
      if (source_->refusesSeeks_) return false;
      error_ = nullptr;
      next_ = 0;
      parameters_ = track_.parameters.get();
      for (std::size_t i = 0; i < track_.samples.size(); ++i) {
        const Sample& sample = track_.samples[i];
        if (sample.sync && sample.presentation <= time) next_ = i;
      }
      return true;
    }
    NSErrorPtr error() const override { return error_; }
    const AVCodecParameters& codecParameters() const override { return *parameters_; }
    void setReadyHandler(std::function<void()> handler) override {
      const std::lock_guard lock(source_->stateMutex_);
      source_->ready_ = std::move(handler);
    }

   private:
    const std::shared_ptr<MemorySource> source_;
    const Track& track_;
    const AVCodecParameters* parameters_;
    std::size_t next_ = 0;
    NSErrorPtr error_;
  };

  bool takesOne() {
    const std::lock_guard lock(stateMutex_);
    waits_ = left_ == 0;
    if (waits_) return false;
    --left_;
    ++reads_;
    return true;
  }

  CMTime duration_ = CMTimeMake(10, 1);
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
  std::vector<std::unique_ptr<Track>> data_;
  std::function<CMTime(int, CMTime)> emptyUntil_;
  std::atomic<std::size_t> failsBehind_{SIZE_MAX};
  std::atomic<bool> refusesCursors_{false}, refusesSeeks_{false};
  std::atomic<int> cursors_{0}, seeks_{0}, reads_{0};
  std::mutex stateMutex_;
  int left_ = 1'000'000;
  bool waits_ = false;
  std::function<void()> ready_;
};

}  // namespace zaffo::media
