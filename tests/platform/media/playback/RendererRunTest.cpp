// SPDX-License-Identifier: Apache-2.0

// Runs of samples that are left for the next before they are read, as somebody does who drags a
// slider: whatever a run lacks is no failure, and never one of the run after it.

#include <functional>
#include <thread>

#include "doubles/HeldQueue.h"
#include "platform/foundation/AVError.h"
#include "platform/media/playback/RendererFixture.h"

namespace zaffo::media {
namespace {

using test::clip;
using Status = SampleRenderer::Status;

void elsewhere(const std::function<void()>& act) {
  std::thread(act).join();
}

class RendererRunTest : public RendererFixture {
 protected:
  using Samples = std::vector<QueuedSample>;

  /// The samples of a clip for a start at a frame: those before it are only decoded.
  [[nodiscard]] Samples samplesFor(int frame, const char* name = "long_gop.mp4") {
    Samples samples = samplesOf(clip(name), frameTime(frame));
    for (QueuedSample& queued : samples) {
      queued.sample.decodeOnly = queued.sample.presentation < frameTime(frame);
    }
    samples.front().sample.isDiscontinuity = true;
    samples.front().displayImmediately = true;
    return samples;
  }

  /// The first thirty are to be shown and cannot be decoded.
  [[nodiscard]] Samples samplesWithALateStart() { return samplesFor(0, "no_first_key_frame.mp4"); }

  /// The position and the first sample, as a session sets up a run. The rest is to be asked for.
  void begin(Samples samples, int frame) {
    timebase_->setTime(frameTime(frame));
    renderer_->flush(SampleRenderer::Image::Remove);
    rest_ = std::move(samples);
    std::reverse(rest_.begin(), rest_.end());
    bring(1);
  }
  void bring(std::size_t count) {
    for (; count > 0; --count) {
      renderer_->enqueue(std::move(rest_.back()));
      rest_.pop_back();
    }
  }
  void ask(std::function<void()> answer) { renderer_->requestWhenReady(held_, std::move(answer)); }

  /// One that is left before it has a sample, and gets all the same what was on its way.
  void beginAndLeave(const char* name) {
    rest_ = samplesOf(clip(name));
    rest_.front().displayImmediately = true;
    std::reverse(rest_.begin(), rest_.end());
    timebase_->setTime(kCMTimeZero);
    renderer_->flush(SampleRenderer::Image::Remove);
    ask([] {});
    renderer_->stopRequesting();
    bring(rest_.size());
  }

  /// As much as can happen without the client does, however long that takes.
  void expectNoFailure(const char* when) {
    time_.settle();
    EXPECT_EQ(renderer_->status(), Status::Rendering) << when;
    time_.advance(kNanosecondsPerSecond);
    EXPECT_EQ(renderer_->status(), Status::Rendering) << when;
    EXPECT_FALSE(renderer_->error()) << when;
  }

  /// The client brings what there is, and says so.
  void bringTheRest() {
    ask([this] {
      bring(rest_.size());
      renderer_->stopRequesting();
    });
    time_.settle();
    held_->runAll();
    time_.settle();
  }
  void expectTheNextRunShows(int frame) {
    begin(samplesFor(frame), frame);
    bringTheRest();
    EXPECT_EQ(renderer_->status(), Status::Rendering);
    EXPECT_EQ(shown(), frame);
  }

  Samples rest_;  // the next one last
  const std::shared_ptr<HeldQueue> held_ = std::make_shared<HeldQueue>();
};

TEST_F(RendererRunTest, OneThatIsLeftBeforeItsClientWasCalledIsNoFailure) {
  for (const int frame : {40, 7, 61}) {
    begin(samplesFor(frame), frame);
    ask([] { ADD_FAILURE() << "called after the stop"; });
    renderer_->stopRequesting();
    expectNoFailure("left at once");
    held_->runAll();
  }
  expectTheNextRunShows(50);
  EXPECT_EQ(statusChanges_, 1);
}

TEST_F(RendererRunTest, OneThatIsLeftInTheMidstOfReadingIsNoFailure) {
  for (std::size_t read = 0; read < 60; read += 7) {
    begin(samplesFor(40), 40);
    ask([this, read] {
      bring(read);
      elsewhere([this] { renderer_->stopRequesting(); });
      dispatch_wait_until_idle();
      EXPECT_EQ(renderer_->status(), Status::Rendering) << read;
      bring(1);
    });
    time_.settle();
    held_->runAll();
    expectNoFailure("left in a call");
    expectTheNextRunShows(static_cast<int>(read));
  }
  EXPECT_EQ(statusChanges_, 1);
}

TEST_F(RendererRunTest, WhatItLacksIsNotToldOnceItWasLeft) {
  for (const char* name : {"refused_codec.mp4", "no_key_frame.mp4"}) {
    beginAndLeave(name);
    expectNoFailure(name);
    expectTheNextRunShows(33);
  }
  EXPECT_EQ(statusChanges_, 1) << "Rendering, and nothing else";
}

TEST_F(RendererRunTest, WhatItLacksIsToldWhenItIsTakenUpAgain) {
  for (const char* name : {"refused_codec.mp4", "no_key_frame.mp4"}) {
    beginAndLeave(name);
    expectNoFailure(name);
    bringTheRest();
    EXPECT_EQ(renderer_->status(), Status::Failed) << name;
    EXPECT_TRUE(renderer_->error()) << name;
  }
}

TEST_F(RendererRunTest, ACallFromBeforeAFlushDoesNotEndWhatFollows) {
  begin(samplesWithALateStart(), 0);
  bool isFirst = true;
  ask([this, &isFirst] {
    dispatch_wait_until_idle();
    EXPECT_EQ(renderer_->status(), Status::Rendering);
    if (!std::exchange(isFirst, false)) return bring(rest_.size());
    elsewhere([this] { begin(samplesWithALateStart(), 0); });
  });
  time_.settle();
  held_->runAll();
  expectNoFailure("the client is called for the new run too");
  held_->runAll();
  time_.settle();
  EXPECT_TRUE(renderer_->frames()->hasFrame());
}

TEST_F(RendererRunTest, ARequestThatReplacesAnotherAwaitsItsOwnAnswer) {
  begin(samplesWithALateStart(), 0);
  ask([] {});
  time_.settle();
  const auto busy = std::make_shared<HeldQueue>();
  renderer_->requestWhenReady(busy, [this] {
    bring(rest_.size());
    renderer_->stopRequesting();
  });
  held_->runAll();
  expectNoFailure("the new client was not called yet");
  busy->runAll();
  time_.settle();
  EXPECT_TRUE(renderer_->frames()->hasFrame());
}

TEST_F(RendererRunTest, AClockThatChangesMeanwhileIsNoReasonToFail) {
  begin(samplesFor(40), 40);
  ask([this] { bring(rest_.size()); });
  const auto other = CMTimebase::create(CMClockGetHostTimeClock());
  other->setTime(frameTime(45));
  renderer_->setTimebase(other);
  other->setRate(1);
  expectNoFailure("waiting for the client");
  other->setRate(0);
  other->setTime(frameTime(45));
  held_->runAll();
  time_.settle();
  EXPECT_EQ(shown(), 45);
}

TEST_F(RendererRunTest, SamplesMayComeAsSlowlyAsTheyLikeUntilTheOneThatIsToBeShown) {
  const auto frame = 20;
  begin(samplesFor(frame), frame);
  while (!rest_.empty()) {
    time_.advance(kNanosecondsPerSecond / 5);
    ASSERT_EQ(renderer_->status(), Status::Rendering) << rest_.size() << " left";
    bring(1);
  }
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(shown(), frame);
}

TEST_F(RendererRunTest, SamplesThatGiveNoPictureMayComeSlowlyTooAsLongAsMoreMayCome) {
  begin(samplesWithALateStart(), 0);
  for (int i = 0; i < 20; ++i) {
    bring(1);
    time_.advance(kNanosecondsPerSecond / 5);
  }
  EXPECT_EQ(renderer_->status(), Status::Rendering) << "more may come";
  bringTheRest();
  EXPECT_EQ(renderer_->status(), Status::Rendering);
  EXPECT_TRUE(renderer_->frames()->hasFrame());
}

TEST_F(RendererRunTest, AnyNumberOfSamplesMayPrecedeTheFirstThatIsToBeShown) {
  for (const int frame : {590, 310, 299}) {
    begin(samplesFor(frame, "one_key_frame.mp4"), frame);
    bringTheRest();
    EXPECT_EQ(renderer_->status(), Status::Rendering);
    EXPECT_EQ(shown(), frame);
  }
}

TEST_F(RendererRunTest, ARunOfNothingToShowIsNotWaitedForAndNoFailure) {
  Samples samples = samplesFor(100, "one_key_frame.mp4");
  samples.resize(60);  // the file was cut
  begin(std::move(samples), 100);
  bringTheRest();
  expectNoFailure("whoever reads the file knows that it was cut");
  time_.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(time_.hasTimer());
}

}  // namespace
}  // namespace zaffo::media
