// SPDX-License-Identifier: Apache-2.0
#include "platform/media/soundtrack/TrackMixer.h"

#include <gtest/gtest.h>

#include <vector>

#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 48000;
constexpr int64_t kSample = 1000;

/// A stretch of sound at an even level.
struct Stretch {
  int64_t first = 0;
  int64_t frames = 0;
  float level = 0;
};

class TrackMixerTest : public testing::Test {
 protected:
  /// A sum of a track each of one stretch, each with a source of its own.
  void open(const std::vector<Stretch>& stretches) {
    std::vector<std::unique_ptr<AudioTrack>> tracks;
    for (const Stretch& stretch : stretches) {
      Encoded sound =
          makeSound(stretch.first, stretch.frames, kSample, [&](int64_t) { return stretch.level; });
      auto source = std::make_shared<MemorySource>();
      const int trackID = source->add({.type = AVMediaTypeAudio,
                                       .parameters = std::move(sound.parameters),
                                       .samples = std::move(sound.samples),
                                       .formats = {}});
      tracks.push_back(std::make_unique<AudioTrack>(source, trackID, kRate, VolumeEnvelope()));
      sources_.push_back(std::move(source));
    }
    sum_ = std::make_unique<TrackMixer>(std::move(tracks));
    sum_->setReadyHandler([this] { ++ready_; });
  }
  /// Reads so many frames or up to the end; their left samples.
  std::vector<float> read(int64_t frames) {
    std::vector<float> left;
    std::vector<float> sound;
    while (static_cast<int64_t>(left.size()) < frames) {
      const int64_t from = sum_->position().value_or(-1);
      outcome_ =
          sum_->read(std::min<int64_t>(700, frames - static_cast<int64_t>(left.size())), sound);
      if (outcome_ != Outcome::Ready) break;
      EXPECT_EQ(sum_->position(), from + static_cast<int64_t>(sound.size() / 2));
      for (std::size_t i = 0; i < sound.size(); i += 2) left.push_back(sound[i]);
    }
    return left;
  }
  static void expectLevel(const std::vector<float>& left, int64_t from, int64_t to, float level) {
    for (int64_t i = from; i < to; ++i) ASSERT_EQ(left.at(static_cast<std::size_t>(i)), level) << i;
  }

  std::vector<std::shared_ptr<MemorySource>> sources_;
  std::unique_ptr<TrackMixer> sum_;
  Outcome outcome_ = Outcome::Ready;
  int ready_ = 0;
};

TEST_F(TrackMixerTest, AddsWhatSoundsTogether) {
  open({{0, 3000, 0.25f}, {2000, 3000, 0.5f}});
  sum_->seek(0);
  const std::vector<float> left = read(100'000);
  EXPECT_EQ(outcome_, Outcome::End);
  ASSERT_EQ(left.size(), 5000u);
  expectLevel(left, 0, 2000, 0.25f);
  expectLevel(left, 2000, 3000, 0.75f);
  expectLevel(left, 3000, 5000, 0.5f);
  EXPECT_EQ(sum_->endFrame(), 5000);
}

TEST_F(TrackMixerTest, IsSilentWhereNoTrackSounds) {
  open({{0, 1000, 0.25f}, {4500, 1000, 0.5f}});
  sum_->seek(0);
  const std::vector<float> left = read(100'000);
  ASSERT_EQ(left.size(), 5500u);
  expectLevel(left, 1000, 4500, 0.0f);
  expectLevel(left, 4500, 5500, 0.5f);
}

TEST_F(TrackMixerTest, BeginsAtTheFrameThatIsSought) {
  open({{0, 3000, 0.25f}, {2000, 3000, 0.5f}});
  sum_->seek(1900);
  EXPECT_EQ(sum_->position(), 1900);
  const std::vector<float> left = read(200);
  expectLevel(left, 0, 100, 0.25f);
  expectLevel(left, 100, 200, 0.75f);
}

TEST_F(TrackMixerTest, HasNoPlaceBeforeASeekAndAfterARelease) {
  open({{0, 3000, 0.25f}});
  EXPECT_EQ(sum_->position(), std::nullopt);
  sum_->seek(10);
  sum_->release();
  EXPECT_EQ(sum_->position(), std::nullopt);
  sum_->seek(2000);
  EXPECT_EQ(read(100'000).size(), 1000u);
}

TEST_F(TrackMixerTest, ReadsHardlyMoreOfOneTrackThanOfTheOther) {
  open({{0, 100 * kSample, 0.25f}, {0, 100 * kSample, 0.5f}});
  sum_->seek(0);
  (void)read(10 * kSample);
  EXPECT_LE(sources_[0]->reads(), 12);
  EXPECT_LE(sources_[1]->reads(), 12);
}

TEST_F(TrackMixerTest, GivesWhatAllTracksKnowAndWaitsForTheOneThatLagsBehind) {
  open({{0, 10 * kSample, 0.25f}, {0, 10 * kSample, 0.5f}});
  sources_[1]->let(3);
  sum_->seek(0);
  const std::vector<float> left = read(8 * kSample);
  EXPECT_EQ(outcome_, Outcome::Again);
  EXPECT_LE(left.size(), 3u * kSample);
  expectLevel(left, 0, static_cast<int64_t>(left.size()), 0.75f);
  EXPECT_EQ(ready_, 0);
  sources_[1]->let(100);
  EXPECT_EQ(ready_, 1);
  const std::vector<float> rest = read(10 * kSample);
  EXPECT_EQ(left.size() + rest.size(), 10u * kSample);
  expectLevel(rest, 0, static_cast<int64_t>(rest.size()), 0.75f);
}

TEST_F(TrackMixerTest, ATrackThatCannotBeReadIsSilentAmongTheOthers) {
  open({{0, 2000, 0.25f}, {0, 9000, 0.5f}});
  sources_[1]->refuseCursors();
  sum_->seek(0);
  const std::vector<float> left = read(100'000);
  ASSERT_EQ(left.size(), 2000u);
  expectLevel(left, 0, 2000, 0.25f);
  EXPECT_FALSE(sum_->failed());
  EXPECT_EQ(sum_->endFrame(), 2000);
}

TEST_F(TrackMixerTest, HasFailedWhenNoTrackCanBeRead) {
  open({{0, 2000, 0.25f}, {0, 2000, 0.5f}});
  sources_[0]->refuseCursors();
  sources_[1]->refuseCursors();
  sum_->seek(0);
  EXPECT_FALSE(sum_->failed());
  EXPECT_TRUE(read(1000).empty());
  EXPECT_EQ(outcome_, Outcome::End);
  EXPECT_TRUE(sum_->failed());
}

TEST_F(TrackMixerTest, DoesNotKnowItsEndBeforeEveryTrackWasReadToIt) {
  open({{0, 2000, 0.25f}, {0, 9000, 0.5f}});
  sum_->seek(0);
  (void)read(3000);
  EXPECT_EQ(sum_->endFrame(), std::nullopt);
  (void)read(100'000);
  EXPECT_EQ(sum_->endFrame(), 9000);
}

}  // namespace
}  // namespace zaffo::media
