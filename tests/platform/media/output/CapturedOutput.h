// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "platform/TimeSource.h"
#include "platform/coremedia/CMAudioClock.h"
#include "platform/media/output/AudioOutput.h"

namespace zaffo::media {

/// A sound output on the host's time that keeps what its inputs would let be heard, frame by frame:
/// without the fades that the mixer puts on edges, so that a test can look at every sample.
class CapturedOutput final : public AudioOutput {
 public:
  static constexpr int kRate = 48000;
  /// Like a device with a period of 10 ms.
  static constexpr int64_t kPeriod = 480;

  CapturedOutput() : clock_(CMAudioClock::create()) { clock_->setAnchor(0, TimeSource::now()); }

  [[nodiscard]] int sampleRate() const override { return kRate; }
  [[nodiscard]] const std::shared_ptr<CMClock>& clock() const override { return base_; }
  [[nodiscard]] int64_t earliestStartFrame() const override { return present() + 2 * kPeriod; }
  [[nodiscard]] int64_t renderLimit() const override { return earliestStartFrame(); }
  [[nodiscard]] std::shared_ptr<AudioInput> addInput(int64_t capacityFrames) override {
    ++inputs_;
    return std::make_shared<Input>(*this, capacityFrames);
  }

  /// Interleaved stereo of output frames [first, end): the sum of all inputs.
  [[nodiscard]] std::vector<float> heard(int64_t first, int64_t end) const {
    const std::lock_guard lock(heardMutex_);
    std::vector<float> part(static_cast<std::size_t>(2 * (end - first)));
    const auto available = static_cast<int64_t>(heard_.size() / 2);
    if (first >= available) return part;
    std::copy(heard_.begin() + 2 * first, heard_.begin() + 2 * std::min(end, available),
              part.begin());
    return part;
  }
  [[nodiscard]] int64_t present() const {
    return clock_->nanosecondsAtHostTime(TimeSource::now()) / 1000 * 48 / 1000;
  }
  /// The output frames that inputs were started at.
  [[nodiscard]] std::vector<int64_t> starts() const {
    const std::lock_guard lock(heardMutex_);
    return starts_;
  }
  /// How many inputs there have been, and how often they were written to.
  [[nodiscard]] int inputs() const { return inputs_; }
  [[nodiscard]] int writes() const { return writes_; }

 private:
  class Input final : public AudioInput {
   public:
    Input(CapturedOutput& output, int64_t capacity) : output_(output), capacity_(capacity) {}
    ~Input() override { stop(); }

    void restart(int64_t firstOutputFrame) override {
      stop();
      next_ = firstOutputFrame;
      const std::lock_guard lock(output_.heardMutex_);
      output_.starts_.push_back(firstOutputFrame);
    }
    int64_t write(std::span<const float> interleaved) override {
      const int64_t count = std::min(static_cast<int64_t>(interleaved.size() / 2), writable());
      const float volume = volume_;
      const std::lock_guard lock(output_.heardMutex_);
      ++output_.writes_;
      auto& heard = output_.heard_;
      heard.resize(std::max(heard.size(), static_cast<std::size_t>(2 * (next_ + count))));
      for (int64_t i = std::max<int64_t>(0, output_.present() - next_); i < count; ++i) {
        heard[static_cast<std::size_t>(2 * (next_ + i))] += volume * interleaved[2 * i];
        heard[static_cast<std::size_t>(2 * (next_ + i) + 1)] += volume * interleaved[2 * i + 1];
      }
      next_ += count;
      return count;
    }
    [[nodiscard]] int64_t writable() const override {
      return std::max<int64_t>(0, output_.present() + capacity_ - next_);
    }
    [[nodiscard]] int64_t nextOutputFrame() const override { return next_; }
    void stop() override {
      const std::lock_guard lock(output_.heardMutex_);
      const auto kept = static_cast<std::size_t>(2 * (output_.present() + 1));
      if (output_.heard_.size() > kept) output_.heard_.resize(kept);
    }
    void setVolume(float volume) override { volume_ = volume; }

   private:
    CapturedOutput& output_;
    const int64_t capacity_;
    int64_t next_ = 0;
    std::atomic<float> volume_{1};  ///< of what is written from now on
  };

  const std::shared_ptr<CMAudioClock> clock_;
  const std::shared_ptr<CMClock> base_ = clock_;
  std::atomic<int> inputs_{0};
  std::atomic<int> writes_{0};
  mutable std::mutex heardMutex_;
  std::vector<float> heard_;  ///< interleaved, from output frame 0 on
  std::vector<int64_t> starts_;
};

}  // namespace zaffo::media
