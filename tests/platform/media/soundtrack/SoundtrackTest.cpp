// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/Soundtrack.h"

#include <gtest/gtest.h>

#include "doubles/ManualTime.h"
#include "platform/media/Decoding.h"
#include "platform/media/GatedSource.h"
#include "platform/media/output/CapturedOutput.h"
#include "platform/media/playback/Playback.h"
#include "platform/media/source/CompositionSource.h"

namespace zaffo::media {
namespace {

using test::clip;

constexpr int kTrackA = 1;
constexpr int kTrackB = 2;

CMTime milliseconds(int64_t value) {
  return CMTimeMake(value, 1000);
}

/// A range of a clip's sound at a place of a composition.
struct Placed {
  const char* clip;
  int64_t from, length, at;
};

/// A composition of sound alone, with gaps between what is placed.
std::shared_ptr<CompositionSource> compose(const std::vector<std::vector<Placed>>& tracks) {
  std::vector<CompositionSource::Track> made;
  std::vector<std::shared_ptr<SampleSource>> sources;
  for (const auto& track : tracks) {
    std::vector<AVCompositionTrackSegment> segments;
    CMTime end = kCMTimeZero;
    for (const Placed& placed : track) {
      const auto source = openClip(clip(placed.clip));
      sources.push_back(source);
      auto description = std::make_shared<AVAssetTrack>(*trackOfType(*source, AVMediaTypeAudio));
      description->source = source;
      const CMTimeRange target{milliseconds(placed.at), milliseconds(placed.length)};
      if (target.start > end) {
        const CMTimeRange gap = CMTimeRangeFromTimeToTime(end, target.start);
        segments.push_back({nullptr, gap, gap});
      }
      segments.push_back({description, {milliseconds(placed.from), target.duration}, target});
      end = CMTimeRangeGetEnd(target);
    }
    AVAssetTrack description;
    description.trackID = static_cast<int>(made.size()) + 1;
    description.mediaType = AVMediaTypeAudio;
    made.push_back({description, std::make_shared<const std::vector<AVCompositionTrackSegment>>(
                                     std::move(segments))});
  }
  return CompositionSource::create(std::move(made), std::move(sources));
}

double level(const std::vector<float>& sound) {
  double energy = 0;
  for (const float sample : sound) energy += sample * sample;
  return std::sqrt(energy / static_cast<double>(sound.size()));
}

/// A tone at amplitude 0.5, less what an encoder takes, in every 10 ms.
void expectTone(const std::vector<float>& sound) {
  constexpr std::size_t kSpan = 960;
  for (std::size_t at = 0; at + kSpan <= sound.size(); at += kSpan) {
    const auto from = sound.begin() + static_cast<std::ptrdiff_t>(at);
    EXPECT_NEAR(level({from, from + kSpan}), 0.5 / std::sqrt(2), 0.02) << at / 2;
  }
}

class SoundtrackTest : public testing::Test {
 protected:
  void open(std::shared_ptr<SampleSource> source) {
    source_ = std::make_shared<GatedSource>(std::move(source));
    sound_ = Soundtrack::create(source_, {}, output_);
    ASSERT_NE(sound_, nullptr);
    sound_->setReadyHandler([this] { ++readyCalls_; });
  }
  /// Starts what was prefilled, and returns the output frame at which it starts.
  int64_t start(double rate = 1) {
    const int64_t first = output_.earliestStartFrame();
    sound_->start(first, rate);
    return first;
  }
  /// Lets the output go on for so long, topping it up when it is time to.
  void run(int64_t forMilliseconds) {
    const int64_t end = time_.nanoseconds() + forMilliseconds * kNanosecondsPerMillisecond;
    while (time_.nanoseconds() < end) {
      const auto next = sound_->nextFillHostTime();
      const int64_t until = next ? std::clamp(*next, time_.nanoseconds() + 1, end) : end;
      time_.advance(until - time_.nanoseconds());
      if (next) sound_->fill();
    }
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<GatedSource> source_;
  std::unique_ptr<Soundtrack> sound_;
  std::atomic<int> readyCalls_{0};
};

TEST_F(SoundtrackTest, OfASourceWithoutSoundIsNone) {
  EXPECT_EQ(Soundtrack::create(openClip(clip("video_only.mp4")), {}, output_), nullptr);
}

TEST_F(SoundtrackTest, OfSoundThatTheHeaderTellsToBeEncryptedIsNone) {
  EXPECT_EQ(Soundtrack::create(openClip(clip("protected_sound.mp4")), {}, output_), nullptr);
}

TEST_F(SoundtrackTest, ATrackThatIsSilentAtTheStartIsNotOpenedForIt) {
  open(compose({{{"loop_tone_aac.mp4", 50, 950, 0}}, {{"loop_tone_aac.mp4", 50, 950, 900}}}));
  ASSERT_TRUE(sound_->prefill(kCMTimeZero));
  EXPECT_EQ(source_->opened(kTrackA), 1);
  EXPECT_EQ(source_->opened(kTrackB), 0);
}

TEST_F(SoundtrackTest, AGapIsNeitherReadNorDecodedBeforeItsEndComesNear) {
  open(compose({{{"loop_tone_3_s.mov", 0, 2950, 0}}, {{"loop_tone_aac.mp4", 50, 950, 2900}}}));
  ASSERT_TRUE(sound_->prefill(kCMTimeZero));
  start();
  run(2000);
  EXPECT_EQ(source_->opened(kTrackB), 0);
  run(1000);
  EXPECT_EQ(source_->opened(kTrackB), 1);
  EXPECT_GT(source_->asked(kTrackB), 1);
}

TEST_F(SoundtrackTest, SoundAfterMoreThanAMinuteOfSilenceIsHeardAtItsPlace) {
  open(compose({{{"loop_tone_pcm.mov", 0, 500, 0}, {"loop_tone_pcm.mov", 0, 500, 99'000}}}));
  ASSERT_TRUE(sound_->prefill(kCMTimeZero));
  const int64_t first = start();
  run(100'000);
  EXPECT_TRUE(sound_->finished());
  EXPECT_EQ(level(output_.heard(first + 24'000, first + 99 * 48'000)), 0);
  expectTone(output_.heard(first + 99 * 48'000, first + 99 * 48'000 + 24'000));
}

TEST_F(SoundtrackTest, ASourceThatHasNothingYetIsWaitedForWithoutATimer) {
  open(compose({{{"loop_tone_3_s.mov", 0, 3000, 0}}}));
  source_->let(0);
  EXPECT_FALSE(sound_->prefill(kCMTimeZero));
  EXPECT_EQ(readyCalls_, 0);
  source_->let(1'000'000);
  EXPECT_EQ(readyCalls_, 1);
  EXPECT_TRUE(sound_->prefill(kCMTimeZero));
  source_->let(0);
  const int64_t first = start();
  EXPECT_EQ(sound_->nextFillHostTime(), std::nullopt);
  time_.advance(kNanosecondsPerSecond);
  const int asked = source_->asked(kTrackA);
  source_->let(1'000'000);
  EXPECT_EQ(readyCalls_, 2);
  EXPECT_EQ(source_->asked(kTrackA), asked);
  sound_->fill();
  EXPECT_NE(sound_->nextFillHostTime(), std::nullopt);
  run(1000);
  // What was not there in time is silent, and what follows stands in its place.
  EXPECT_EQ(level(output_.heard(first + 24'000, first + 40'000)), 0);
  const auto source = decodeAudio(clip("loop_tone_3_s.mov"));
  const auto heard = output_.heard(first + 72'000, first + 84'000);
  for (std::size_t i = 0; i < heard.size(); ++i) {
    ASSERT_EQ(heard[i], source.samples[i + 2 * 72'000]);
  }
}

TEST_F(SoundtrackTest, ATrackThatCannotBeOpenedIsSilentAndTheOthersAreHeard) {
  open(compose({{{"loop_tone_pcm.mov", 0, 900, 0}}, {{"loop_tone_pcm.mov", 0, 900, 0}}}));
  source_->refuse(kTrackB);
  ASSERT_TRUE(sound_->prefill(kCMTimeZero));
  EXPECT_FALSE(sound_->failed());
  const int64_t first = start();
  run(1000);
  expectTone(output_.heard(first, first + 43'000));
  EXPECT_TRUE(sound_->finished());
}

TEST_F(SoundtrackTest, HasFailedWhenNoTrackCanBeOpened) {
  open(compose({{{"loop_tone_pcm.mov", 0, 900, 0}}}));
  source_->refuse(kTrackA);
  EXPECT_TRUE(sound_->prefill(kCMTimeZero));
  EXPECT_TRUE(sound_->failed());
}

TEST_F(SoundtrackTest, SegmentsOfOneTrackMayHaveDifferentCodecsAndRates) {
  open(compose({{{"loop_tone_aac_44100.mp4", 100, 400, 0},
                 {"loop_tone_opus.mp4", 100, 400, 400},
                 {"loop_tone_pcm.mov", 100, 400, 800},
                 {"loop_tone_mp3.mp4", 100, 400, 1200}}}));
  ASSERT_TRUE(sound_->prefill(kCMTimeZero));
  const int64_t first = start();
  run(2000);
  for (int64_t segment = 0; segment < 4; ++segment) {
    const int64_t from = first + segment * 19'200;
    expectTone(output_.heard(from, from + 19'200));
  }
  EXPECT_EQ(level(output_.heard(first + 4 * 19'200, first + 90'000)), 0);
}

/// Two sound tracks that are alternatives, as in a file.
class TwoLanguages final : public SampleSource {
 public:
  TwoLanguages() : inner_(compose({{{"loop_tone_pcm.mov", 0, 900, 0}}, {}})) {}
  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  [[nodiscard]] CMTime duration() const override { return inner_->duration(); }
  Result<std::unique_ptr<SampleCursor>> openCursor(int) override {
    ++opened;
    return inner_->openCursor(kTrackA);
  }
  int opened = 0;

 private:
  std::shared_ptr<SampleSource> inner_;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_ = {inner_->tracks().front(),
                                                              inner_->tracks().front()};
};

TEST_F(SoundtrackTest, OnlyTheFirstOfSoundTracksThatAreAlternativesIsHeard) {
  const auto file = std::make_shared<TwoLanguages>();
  sound_ = Soundtrack::create(file, {}, output_);
  ASSERT_TRUE(sound_->prefill(kCMTimeZero));
  const int64_t first = start();
  run(500);
  EXPECT_EQ(file->opened, 1);
  expectTone(output_.heard(first, first + 19'200));
}

TEST_F(SoundtrackTest, ACompositionTellsWhereATrackIsEmpty) {
  const auto source =
      compose({{{"loop_tone_pcm.mov", 0, 500, 100}, {"loop_tone_pcm.mov", 0, 500, 900}}});
  EXPECT_EQ(source->emptyUntil(kTrackA, kCMTimeZero), milliseconds(100));
  EXPECT_EQ(source->emptyUntil(kTrackA, milliseconds(300)), milliseconds(300));
  EXPECT_EQ(source->emptyUntil(kTrackA, milliseconds(600)), milliseconds(900));
  EXPECT_EQ(source->emptyUntil(kTrackA, milliseconds(1400)), kCMTimePositiveInfinity);
  EXPECT_EQ(source->emptyUntil(kTrackB, kCMTimeZero), kCMTimePositiveInfinity);
}

/// The same, in a playback that wakes itself.
class WaitingPlaybackTest : public testing::Test {
 protected:
  ~WaitingPlaybackTest() override {
    playback_->close();
    time_.settle();
  }
  void settleAndStart(double rate) {
    time_.settle();
    playback_->setRate(rate);
    time_.settle();
  }
  [[nodiscard]] double levelAt(double secondsAfterStart) const {
    const int64_t from = output_.starts().back() + std::llround(secondsAfterStart * 48'000);
    return level(output_.heard(from, from + 4800));
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<GatedSource> source_ =
      std::make_shared<GatedSource>(compose({{{"loop_tone_3_s.mov", 0, 3000, 0}}}));
  std::shared_ptr<Playback> playback_ = Playback::create(source_, output_, {});
};

TEST_F(WaitingPlaybackTest, AsksNothingWhileTheSourceHasNothing) {
  time_.settle();
  source_->let(0);
  settleAndStart(1);
  const int asked = source_->asked(kTrackA);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_LE(source_->asked(kTrackA), asked + 1);
  EXPECT_EQ(playback_->timebase()->rate(), 0) << "it waits";
  const double place = CMTimeGetSeconds(playback_->currentTime());
  source_->let(1'000'000);
  time_.advance(kNanosecondsPerSecond);
  ASSERT_EQ(output_.starts().size(), 2u);
  for (const double after : {0.0, 0.4, 0.8}) EXPECT_GT(levelAt(after), 0.3) << after;
  EXPECT_NEAR(CMTimeGetSeconds(playback_->currentTime()), place + 1, 0.05);
}

TEST_F(WaitingPlaybackTest, SoundThatIsNotThereAtItsPlaceAfterAChangeOfRateIsWaitedFor) {
  settleAndStart(1);
  time_.advance(300 * kNanosecondsPerMillisecond);
  source_->let(0);
  playback_->setRate(1.5);
  time_.advance(300 * kNanosecondsPerMillisecond);
  EXPECT_EQ(output_.starts().size(), 1u);
  EXPECT_NEAR(CMTimeGetSeconds(playback_->currentTime()), 0.3, 0.08);
  source_->let(1'000'000);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(output_.starts().size(), 2u);
  EXPECT_GT(levelAt(0), 0.3);
  EXPECT_GT(levelAt(0.6), 0.3);
  EXPECT_NEAR(CMTimeGetSeconds(playback_->currentTime()), 1.8, 0.15);
}

TEST_F(WaitingPlaybackTest, APauseEndsTheWaitOfSoundThatWasToJoinIn) {
  settleAndStart(1);
  time_.advance(300 * kNanosecondsPerMillisecond);
  source_->let(0);
  playback_->setRate(1.5);
  time_.advance(100 * kNanosecondsPerMillisecond);
  playback_->setRate(0);
  time_.settle();
  source_->let(1'000'000);
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(output_.starts().size(), 1u);
  playback_->setRate(1);
  time_.advance(500 * kNanosecondsPerMillisecond);
  EXPECT_EQ(output_.starts().size(), 2u);
  EXPECT_GT(levelAt(0.1), 0.3);
}

}  // namespace
}  // namespace zaffo::media
