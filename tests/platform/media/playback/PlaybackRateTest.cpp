// SPDX-License-Identifier: Apache-2.0

// Sound and picture through changes of rate: in step, and soon there.

#include <array>
#include <filesystem>
#include <vector>

#include "doubles/ManualTime.h"
#include "platform/media/GatedSource.h"
#include "platform/media/output/CapturedOutput.h"
#include "platform/media/output/WavWriter.h"
#include "platform/media/playback/Playback.h"
#include "platform/media/source/Composing.h"

namespace zaffo::media {
namespace {

using test::clip;
constexpr int kRate = CapturedOutput::kRate;
constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

/// A place in what is heard, and the time of the media that the pictures stand at then.
struct Moment {
  int64_t outputFrame = 0;
  double mediaSeconds = 0;
};

/// Ten seconds with a short sound of 1 kHz in the middle of each quarter of a second.
class PlaybackRateTest : public testing::Test {
 protected:
  static constexpr int64_t kSpacing = kRate / 4;
  static constexpr int64_t kBurst = kRate / 50;
  static constexpr int64_t kFrames = 10 * kRate;

  PlaybackRateTest() {
    for (int64_t middle = kSpacing / 2; middle < kFrames; middle += kSpacing) {
      for (int64_t i = 0; i < kBurst; ++i) {
        const auto at = static_cast<std::size_t>(2 * (middle - kBurst / 2 + i));
        const double phase = 2 * M_PI * 1000 * static_cast<double>(i) / kRate;
        media_[at] = media_[at + 1] = 0.5f * static_cast<float>(std::sin(phase));
      }
    }
    WavWriter::create(path_, kRate).valueOr(nullptr)->append(media_);
    playback_ = Playback::create(openClip(path_), output_, {});
    time_.settle();
  }
  ~PlaybackRateTest() override {
    playback_->close();
    time_.settle();
    std::filesystem::remove(path_);
  }

  void setRate(double rate) {
    playback_->setRate(rate);
    time_.settle();
  }
  /// Moves on for so long, and notes which time the pictures stand at on the way.
  void run(int64_t milliseconds) {
    for (int64_t i = 0; i < milliseconds; ++i) {
      time_.advance(kMillisecond);
      moments_.push_back({output_.present(), CMTimeGetSeconds(playback_->currentTime())});
    }
  }

  /// How much later than the pictures of its time each short sound is heard that belongs between
  /// two moments of real time, in seconds of real time.
  [[nodiscard]] std::vector<double> soundBehindPicture(std::size_t from, std::size_t until) const {
    std::vector<double> late;
    for (std::size_t i = from + 1; i < until; ++i) {
      const Moment &before = moments_[i - 1], &after = moments_[i];
      const double quarter = std::floor(after.mediaSeconds * 4 - 0.5);
      const double middle = (quarter + 0.5) / 4;
      if (middle <= before.mediaSeconds) continue;
      late.push_back((centreAround(after.outputFrame) - static_cast<double>(after.outputFrame)) /
                     kRate);
    }
    return late;
  }

  /// The centre of what is heard within 90 ms of an output frame.
  [[nodiscard]] double centreAround(int64_t frame) const {
    const int64_t first = frame - kRate * 90 / 1000;
    const auto heard = output_.heard(first, frame + kRate * 90 / 1000);
    double weight = 0, moment = 0;
    for (std::size_t i = 0; i < heard.size(); i += 2) {
      const double energy = heard[i] * heard[i];
      weight += energy;
      moment += energy * static_cast<double>(i / 2);
    }
    return static_cast<double>(first) + moment / weight;
  }

  const std::string path_ =
      testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name() + ".wav";
  ManualTime time_;
  CapturedOutput output_;
  std::vector<float> media_ = std::vector<float>(2 * kFrames);
  std::shared_ptr<Playback> playback_;
  std::vector<Moment> moments_;
};

TEST_F(PlaybackRateTest, SoundStaysInStepWithThePictureThroughChangesOfRate) {
  constexpr double kTolerance = 0.006;
  constexpr std::size_t kEach = 1500;
  // A change is joined within 60 ms, and sounds near it may be cut.
  constexpr std::size_t kJoining = 150, kEdge = 100;
  const std::array rates{1.0, 2.0, 0.5, 1.0};
  for (const double rate : rates) {
    setRate(rate);
    run(kEach);
  }
  for (std::size_t part = 0; part < rates.size(); ++part) {
    const auto late = soundBehindPicture(part * kEach + kJoining, (part + 1) * kEach - kEdge);
    ASSERT_GE(late.size(), 2u);
    for (const double seconds : late) {
      EXPECT_NEAR(seconds, 0, rates[part] == 1 ? 0.001 : kTolerance) << "at rate " << rates[part];
    }
  }
}

TEST_F(PlaybackRateTest, AfterARateThatStretchesTheSoundItIsTheMediasOwnAgain) {
  setRate(1);
  run(700);
  for (const double rate : {2.0, 0.5, 1.0}) {
    setRate(rate);
    run(700);
  }
  // What is heard 100 ms before the present is what the media holds at that time.
  const Moment& moment = moments_[moments_.size() - 100];
  const int64_t mediaFrame = std::llround(moment.mediaSeconds * kRate);
  const auto heard = output_.heard(moment.outputFrame - kRate / 4, moment.outputFrame);
  const auto matches = [&](int64_t shift) {
    const auto first = static_cast<std::size_t>(2 * (mediaFrame - kRate / 4 + shift));
    return std::equal(heard.begin(), heard.end(),
                      media_.begin() + static_cast<std::ptrdiff_t>(first));
  };
  EXPECT_TRUE(matches(-1) || matches(0) || matches(1)) << mediaFrame;
}

TEST_F(PlaybackRateTest, StartsWithinTwoPeriodsOfTheOutput) {
  const int64_t asked = output_.present();
  setRate(1);
  ASSERT_EQ(output_.starts().size(), 1u);
  EXPECT_LE(output_.starts().back() - asked, 2 * CapturedOutput::kPeriod);
  run(20);
  EXPECT_EQ(moments_.back().mediaSeconds, 0);
  run(20);
  EXPECT_NEAR(moments_.back().mediaSeconds, 0.02, 0.001);
}

TEST_F(PlaybackRateTest, AChangeOfRateIsSeenAtOnceAndHeardWithin40Milliseconds) {
  setRate(1);
  run(500);
  for (const double rate : {2.0, 0.5, 1.0, 1.5}) {
    const std::size_t starts = output_.starts().size();
    const int64_t asked = output_.present();
    const double before = moments_.back().mediaSeconds;
    setRate(rate);
    ASSERT_EQ(output_.starts().size(), starts + 1) << rate;
    EXPECT_LE(output_.starts().back() - asked, kRate * 40 / 1000) << rate;
    run(10);
    EXPECT_NEAR(moments_.back().mediaSeconds, before + 0.01 * rate, 1e-3) << rate;
    run(490);
  }
}

TEST_F(PlaybackRateTest, AStartAfterAPauseIsAsQuickAsTheFirst) {
  setRate(2);
  run(500);
  setRate(0);
  run(100);
  const int64_t asked = output_.present();
  setRate(1);
  EXPECT_LE(output_.starts().back() - asked, 2 * CapturedOutput::kPeriod);
}

/// What a playback shows while somebody draws.
class PlaybackHurryTest : public testing::Test {
 protected:
  ~PlaybackHurryTest() override {
    playback_->close();
    time_.settle();
  }

  [[nodiscard]] std::optional<int> shown() {
    return test::frameNumber(playback_->frames()->bufferAtHostTime(TimeSource::now()));
  }
  void rewindAndStart() {
    playback_->seek(kCMTimeZero, kCMTimeZero, kCMTimeZero, nullptr);
    playback_->setRate(1);
    time_.settle();
  }
  /// Plays from the start on, and expects frames [0, count) in turn.
  void expectEveryFrame(int count) {
    for (int frame = 0; frame < count; ++frame) {
      time_.advance(std::llround((frame + 0.5) * 1e9 / 30) - elapsed_);
      elapsed_ = std::llround((frame + 0.5) * 1e9 / 30);
      ASSERT_EQ(shown(), frame);
    }
    elapsed_ = 0;
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<GatedSource> source_ =
      std::make_shared<GatedSource>(openClip(clip("video_only.mp4")));
  std::shared_ptr<Playback> playback_ = Playback::create(source_, output_, {});
  int64_t elapsed_ = 0;
};

TEST_F(PlaybackHurryTest, AnIdlePlayerRewoundAndStartedAtOnceShowsEveryFrame) {
  time_.settle();
  rewindAndStart();
  expectEveryFrame(40);
  playback_->setRate(0);
  time_.settle();
  rewindAndStart();
  expectEveryFrame(40);
}

TEST_F(PlaybackHurryTest, FramesThatWereLateBeforeARewindAreLeftOutNoMore) {
  time_.settle();
  playback_->setRate(1);
  time_.settle();
  // The source falls silent, and what it gives then is more than a second late: the next frames
  // may be left out. Before they are, the player goes back to the start.
  source_->let(4);
  time_.advance(kNanosecondsPerSecond * 3 / 2);
  source_->let(8);
  time_.settle();
  source_->let(0);
  playback_->setRate(0);
  time_.settle();
  source_->let(1'000'000);
  rewindAndStart();
  expectEveryFrame(40);
}

}  // namespace
}  // namespace zaffo::media
