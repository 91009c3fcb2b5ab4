// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "platform/media/Decoding.h"
#include "platform/media/SampleBuffers.h"
#include "platform/media/playback/SampleRenderer.h"

namespace zaffo::media {

/// A renderer of the test clips with a timebase that the test moves.
class RendererFixture : public testing::Test {
  /// What is fed until something else is.
  struct Run {
    std::mutex mutex;
    bool isLeft = false;
    std::vector<QueuedSample> left;  ///< the next one last
  };

  /// What is being fed is given up: a call for it that is under way gives nothing more.
  void leave() {
    if (!run_) return;
    const std::lock_guard lock(run_->mutex);
    run_->isLeft = true;
  }
  /// False when nothing more is to be given now.
  static bool giveOneOf(Run& run, SampleRenderer& renderer) {
    const std::lock_guard lock(run.mutex);
    if (run.isLeft || !renderer.isReadyForMore()) return false;
    if (run.left.empty()) {
      renderer.stopRequesting();
      return false;
    }
    renderer.enqueue(std::move(run.left.back()));
    run.left.pop_back();
    return true;
  }

 protected:
  RendererFixture() { makeRenderer(); }
  ~RendererFixture() override { renderer_->close(); }

  void makeRenderer() {
    renderer_ =
        SampleRenderer::create({[this] { ++pictureChanges_; }, [this] { ++statusChanges_; }});
    renderer_->setTimebase(timebase_);
  }

  /// The samples of a clip's picture from the sync sample for `start` on, as they are read.
  [[nodiscard]] std::vector<QueuedSample> samplesOf(const std::string& path,
                                                    CMTime start = kCMTimeZero) {
    const auto source = openClip(path);
    const auto cursor = openTrack(*source, AVMediaTypeVideo);
    EXPECT_TRUE(cursor->seek(start));
    auto format = makeFormatDescription(cursor->codecParameters());
    std::vector<QueuedSample> samples;
    for (Sample& sample : readAll(*cursor)) samples.push_back({std::move(sample), format, false});
    return samples;
  }

  /// As a session does it: the position first, then the first sample marked, then the others.
  void start(std::vector<QueuedSample> samples, CMTime position = kCMTimeZero) {
    leave();
    timebase_->setRate(0);
    timebase_->setTime(position);
    renderer_->flush(SampleRenderer::Image::Remove);
    if (samples.empty()) return;
    samples.front().sample.isDiscontinuity = true;
    samples.front().displayImmediately = true;
    feed(std::move(samples));
  }

  /// Enqueues on request as long as there is room, and stops when nothing is left.
  void feed(std::vector<QueuedSample> samples) {
    run_ = std::make_shared<Run>();
    run_->left = std::move(samples);
    std::reverse(run_->left.begin(), run_->left.end());
    renderer_->enqueue(std::move(run_->left.back()));
    run_->left.pop_back();
    request();
  }
  void request() {
    // A call that is under way outlives a renderer that the test lets go of.
    renderer_->requestWhenReady(queue_, [this, weak = std::weak_ptr(renderer_), run = run_] {
      const auto renderer = weak.lock();
      ++calls_;
      while (renderer && giveOneOf(*run, *renderer)) {
      }
    });
  }
  [[nodiscard]] std::size_t left() const {
    const std::lock_guard lock(run_->mutex);
    return run_->left.size();
  }

  /// The number of the frame on show now.
  [[nodiscard]] std::optional<int> shown() {
    return test::frameNumber(renderer_->frames()->bufferAtHostTime(TimeSource::now()));
  }

  [[nodiscard]] static CMTime frameTime(int frame, int rate = 30) {
    return CMTimeMake(frame, rate);
  }

  ManualTime time_;
  std::shared_ptr<CMTimebase> timebase_ = CMTimebase::create(CMClockGetHostTimeClock());
  std::atomic<int> pictureChanges_{0};  ///< told of on any thread, like the status
  std::atomic<int> statusChanges_{0};
  std::shared_ptr<SampleRenderer> renderer_ =
      SampleRenderer::create({[this] { ++pictureChanges_; }, [this] { ++statusChanges_; }});
  DispatchQueuePtr queue_ = dispatch_queue_create("test.session");
  std::shared_ptr<Run> run_;
  std::atomic<int> calls_{0};
};

}  // namespace zaffo::media
