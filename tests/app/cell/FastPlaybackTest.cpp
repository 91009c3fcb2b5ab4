// SPDX-License-Identifier: Apache-2.0

// A page over real clips, with B frames, and a pool of fast players.

#include "cell/FastPlayback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "cell/PlayerCell.h"
#include "doubles/BusyPool.h"
#include "doubles/ManualTime.h"
#include "fast/QuietTrace.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"

namespace zaffo::feed {
namespace {

using test::clip;
using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Ge;
using testing::Gt;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Lt;

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

/// Drawn each five milliseconds of a time that is moved by hand.
class FastPlaybackTest : public testing::Test {
 protected:
  FastPlaybackTest() { manager_->setUseFastPlayer(true); }

  void open(const std::string& name, bool loops = true) {
    const auto url = NSURL::fileURLWithPath(clip(name));
    cell_ =
        PlayerCell::create(manager_,
                           std::make_shared<FeedVideo>(
                               url, name, ZFSingleLoopVideoPlayerItemLoader::createWithURL(url)),
                           {loops, {192, 108}});
  }
  void load() {
    cell_->load();
    time_.settle();
    ASSERT_TRUE(layer());
  }
  void makeCurrent() { cell_->becomeCurrent(std::make_shared<Swipe>(), 1); }

  [[nodiscard]] std::shared_ptr<AVSampleBufferDisplayLayer> layer() const {
    for (const auto& view : cell_->view()->subviews()) {
      const auto fast = std::dynamic_pointer_cast<PlayerFastOutputView>(view);
      if (fast) return fast->sampleBufferDisplayerLayer();
    }
    return nullptr;
  }
  /// As a window does it. The number of the frame on show; -1 when there is none.
  int draw() {
    const int64_t now = TimeSource::now();
    const auto shown = layer();
    const auto picture = shown ? shown->picture(now) : std::nullopt;
    if (picture) shown->didPresent(picture->buffer, now);
    cell_->didPresent(now);
    return picture ? test::frameNumber(picture->buffer).value_or(-1) : -1;
  }
  /// Time goes on. What was seen is in seen_.
  void run(double seconds) {
    for (double gone = 0; gone < seconds; gone += 0.005) {
      time_.advance(5 * kMillisecond);
      const int number = draw();
      if (number < 0 || (!seen_.empty() && seen_.back().number == number)) continue;
      seen_.push_back({number, time_.elapsed()});
    }
  }
  [[nodiscard]] std::vector<int> numbersSeen() const {
    std::vector<int> numbers;
    for (const Seen& one : seen_) numbers.push_back(one.number);
    return numbers;
  }
  [[nodiscard]] double rate() const { return layer()->controlTimebase()->rate(); }
  [[nodiscard]] const std::string& text() const {
    return std::static_pointer_cast<FeedPage>(cell_->view())->text();
  }

  struct Seen {
    int number;
    int64_t at;  // of the elapsed time
  };

  const QuietTrace quiet_;
  ManualTime time_;
  std::shared_ptr<PlayerManager> manager_ = PlayerManager::create();
  std::shared_ptr<PlayerCell> cell_;
  std::vector<Seen> seen_;
};

// The end

struct Run {
  const char* clip;
  int frames;
  float framesASecond;
  float rate;
};

class FastPlaybackAtRateTest : public FastPlaybackTest, public testing::WithParamInterface<Run> {};

TEST_P(FastPlaybackAtRateTest, ShowsEveryPictureInItsOrderForItsTimeAndThenStartsAgain) {
  const auto [name, frames, framesASecond, clipRate] = GetParam();
  open(name);
  load();
  makeCurrent();
  cell_->setRate(clipRate);
  const double round = frames / framesASecond / clipRate;
  run(2.2 * round + 0.1);
  std::vector<int> expected(static_cast<std::size_t>(2 * frames));
  std::iota(expected.begin(), expected.begin() + frames, 0);
  std::iota(expected.begin() + frames, expected.end(), 0);
  ASSERT_GE(seen_.size(), expected.size());
  seen_.resize(expected.size());
  EXPECT_THAT(numbersSeen(), ElementsAreArray(expected));
  for (std::size_t i = 1; i < seen_.size(); ++i) {
    const auto stood = static_cast<double>(seen_[i].at - seen_[i - 1].at) / 1e9;
    // The first picture of a round is there before it begins to move.
    EXPECT_NEAR(stood, 1 / framesASecond / clipRate, 0.0101) << seen_[i - 1].number;
  }
}

TEST_P(FastPlaybackAtRateTest, WithoutLoopsItStandsOnTheLastPicture) {
  const auto [name, frames, framesASecond, clipRate] = GetParam();
  open(name, false);
  load();
  makeCurrent();
  cell_->setRate(clipRate);
  run(frames / framesASecond / clipRate + 1);
  EXPECT_EQ(seen_.back().number, frames - 1);
  EXPECT_EQ(seen_.size(), static_cast<std::size_t>(frames));
  EXPECT_EQ(rate(), 0);
}

/// In the clip of 25 frames a second the last sample is that of the last picture but one.
std::vector<Run> runs() {
  std::vector<Run> runs;
  for (const float clipRate : {0.5f, 1.0f, 2.0f}) {
    runs.push_back({"h264_25.mp4", 50, 25, clipRate});
    runs.push_back({"h264_30.mp4", 120, 30, clipRate});
    runs.push_back({"video_only.mp4", 60, 30, clipRate});
  }
  return runs;
}

INSTANTIATE_TEST_SUITE_P(Clips, FastPlaybackAtRateTest, testing::ValuesIn(runs()),
                         [](const auto& run) {
                           return std::to_string(run.param.frames) + "FramesAtRate" +
                                  std::to_string(std::lround(10 * run.param.rate)) + "Tenths";
                         });

TEST_F(FastPlaybackTest, AChangeOfTheRateOnTheWayCounts) {
  open("h264_30.mp4");
  load();
  makeCurrent();
  run(1);
  cell_->setRate(2);
  run(1.4);
  EXPECT_THAT(numbersSeen().back(), AllOf(Ge(112), Le(115))) << "after 3.8 s of the clip";
  cell_->setRate(0.5f);
  run(0.5);
  const auto numbers = numbersSeen();
  EXPECT_EQ(*std::max_element(numbers.begin(), numbers.end()), 119);
  EXPECT_LE(numbers.back(), 3) << "0.2 s at half the rate, and the next round";
}

TEST_F(FastPlaybackTest, APauseInTheLastPicturesHoldsAndGoesOn) {
  open("video_only.mp4");
  load();
  makeCurrent();
  run(1.96);
  cell_->setRate(0);
  run(0.5);
  EXPECT_EQ(seen_.back().number, 58);
  cell_->setRate(1);
  run(0.03);
  EXPECT_EQ(seen_.back().number, 59);
  run(0.06);
  EXPECT_LE(seen_.back().number, 2);
}

// Seeks

TEST_F(FastPlaybackTest, ARateThatIsSetWhileASeekIsUnderWayHolds) {
  open("h264_30.mp4");
  load();
  makeCurrent();
  run(0.3);
  int done = 0;
  for (const float wanted : {2.0f, 0.0f, 1.0f}) {
    BusyPool busy;  // the seek has not begun when the rate is set
    cell_->seek(CMTimeMake(1, 1), [&done] { ++done; });
    cell_->setRate(wanted);
    EXPECT_EQ(rate(), 0) << "not before the picture";
    seen_.clear();
    busy.release();
    run(0.5);
    EXPECT_EQ(seen_.front().number, 30);
    EXPECT_EQ(rate(), wanted);
    EXPECT_NEAR(seen_.back().number, 30 + 15 * wanted, 1);
  }
  EXPECT_EQ(done, 3);
}

TEST_F(FastPlaybackTest, APictureOfTheOldPlaceAtTheNewTimeIsNotYetThatOfTheSeek) {
  open("h264_30.mp4");
  load();
  makeCurrent();
  run(0.3);
  const int before = draw();
  BusyPool busy;  // the layer is not flushed
  std::vector<int> shownWhenDone;
  cell_->seek(CMTimeMake(1, 1), [&] { shownWhenDone.push_back(draw()); });
  layer()->controlTimebase()->setTime(CMTimeMake(1, 1));
  EXPECT_THAT(draw(), AllOf(Gt(before), Lt(30))) << "what was decoded ahead";
  EXPECT_THAT(shownWhenDone, IsEmpty());
  cell_->setRate(2);
  EXPECT_THAT(shownWhenDone, IsEmpty());
  EXPECT_EQ(rate(), 0);
  busy.release();
  time_.settle();
  draw();
  EXPECT_THAT(shownWhenDone, ElementsAre(30));
  EXPECT_EQ(rate(), 2);
}

TEST_F(FastPlaybackTest, APlayerThatIsGivenBackAndTakenInOneTurnPlaysFromTheStart) {
  open("h264_30.mp4");
  load();
  makeCurrent();
  run(0.5);
  {
    const BusyPool busy;  // the pool's rewind has not begun when the page comes back
    cell_->unload();
    makeCurrent();
    seen_.clear();
  }
  run(0.5);
  EXPECT_EQ(rate(), 1);
  EXPECT_THAT(numbersSeen().back(), AllOf(Ge(12), Le(15)));
}

TEST_F(FastPlaybackTest, APageThatIsLeftAndComesBackInOneTurnPlaysFromTheStart) {
  open("h264_30.mp4");
  load();
  makeCurrent();
  run(0.5);
  cell_->resignCurrent();
  cell_->scrollingEnded();
  makeCurrent();
  seen_.clear();
  run(0.5);
  EXPECT_EQ(rate(), 1);
  EXPECT_THAT(numbersSeen().back(), AllOf(Ge(12), Le(15)));
}

TEST_F(FastPlaybackTest, APageThatIsLeftWhileItStartsAgainStandsStill) {
  open("video_only.mp4");
  load();
  makeCurrent();
  run(1.5);
  cell_->seek(kCMTimeZero, [] {});
  cell_->resignCurrent();
  run(0.5);
  EXPECT_EQ(rate(), 0);
  EXPECT_EQ(seen_.back().number, 0);
}

TEST_F(FastPlaybackTest, APlayerThatIsGivenBackWhileItSeeksStandsStillInThePool) {
  open("video_only.mp4");
  load();
  makeCurrent();
  run(0.5);
  const auto shown = layer();
  cell_->seek(CMTimeMake(1, 1), [] {});
  cell_->unload();
  time_.settle();
  EXPECT_EQ(shown->controlTimebase()->rate(), 0);
  EXPECT_EQ(shown->controlTimebase()->time(), kCMTimeZero);
}

TEST_F(FastPlaybackTest, ANewerSeekIsTheOneThatIsShownAndBothAreDone) {
  open("h264_30.mp4");
  load();
  makeCurrent();
  cell_->setRate(0);
  int first = 0, second = 0;
  cell_->seek(CMTimeMake(1, 1), [&first] { ++first; });
  cell_->seek(CMTimeMake(2, 1), [&second] { ++second; });
  run(0.1);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
  EXPECT_EQ(seen_.back().number, 60);
}

TEST_F(FastPlaybackTest, ANeighbourThatComesIntoViewUsesItsPlayerOnce) {
  open("video_only.mp4");
  load();
  makeCurrent();
  EXPECT_THAT(manager_->debugDescription(), HasSubstr("activeUses: 1"));
}

// Failures

TEST_F(FastPlaybackTest, ASeekBeyondACutShowsWhyInPlaceOfThePicture) {
  testing::internal::CaptureStderr();
  open("cut_5.mp4");
  load();
  makeCurrent();
  run(0.1);
  int done = 0;
  cell_->seek(CMTimeMake(7, 2), [&done] { ++done; });
  run(0.5);
  EXPECT_THAT(text(), HasSubstr("damaged or incomplete"));
  EXPECT_EQ(done, 1);
  testing::internal::GetCapturedStderr();
}

TEST_F(FastPlaybackTest, AClipThatCannotBeDecodedShowsWhyThoughItWasLoadedAsANeighbour) {
  open("no_key_frame.mp4");
  cell_->load();
  run(0.5);
  EXPECT_TRUE(cell_->isSettled());
  EXPECT_THAT(text(), HasSubstr("no_key_frame.mp4\n\n"));
}

}  // namespace
}  // namespace zaffo::feed
