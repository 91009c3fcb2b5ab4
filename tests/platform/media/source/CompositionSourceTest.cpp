// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CompositionSource.h"

#include <gtest/gtest.h>

#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"

namespace zaffo::media {
namespace {

CMTime seconds(int64_t count) {
  return CMTimeMake(count, 1);
}

CMTimeRange range(int64_t start, int64_t end) {
  return CMTimeRangeFromTimeToTime(seconds(start), seconds(end));
}

class CompositionSourceTest : public testing::Test {
 protected:
  CompositionSourceTest() {
    Encoded sound = makeSound(0, 10 * 48000, 48000, [](int64_t) { return 0.0f; });
    const int trackID = file_->add({.type = AVMediaTypeAudio,
                                    .parameters = std::move(sound.parameters),
                                    .samples = std::move(sound.samples),
                                    .formats = {}});
    auto track =
        std::make_shared<AVAssetTrack>(*file_->tracks()[static_cast<std::size_t>(trackID - 1)]);
    track->source = file_;
    track_ = std::move(track);
  }

  /// A stretch of the file at a place of the composition.
  [[nodiscard]] AVCompositionTrackSegment cut(CMTimeRange target) const {
    return {track_, {kCMTimeZero, target.duration}, target};
  }
  [[nodiscard]] static AVCompositionTrackSegment gap(CMTimeRange target) {
    return {nullptr, target, target};
  }
  static CompositionSource::Track trackOf(int trackID,
                                          std::vector<AVCompositionTrackSegment> segments) {
    AVAssetTrack description;
    description.trackID = trackID;
    description.mediaType = AVMediaTypeAudio;
    return {description,
            std::make_shared<const std::vector<AVCompositionTrackSegment>>(std::move(segments))};
  }
  std::shared_ptr<CompositionSource> compose(std::vector<CompositionSource::Track> tracks) {
    return CompositionSource::create(std::move(tracks), {file_});
  }

  std::shared_ptr<MemorySource> file_ = std::make_shared<MemorySource>();
  std::shared_ptr<const AVAssetTrack> track_;
};

TEST_F(CompositionSourceTest, LastsAsLongAsItsLongestTrackGapsIncluded) {
  const auto source = compose({trackOf(1, {cut(range(0, 3))}),
                               trackOf(2, {gap(range(0, 4)), cut(range(4, 5)), gap(range(5, 7))})});
  EXPECT_EQ(source->duration(), seconds(7));
  EXPECT_EQ(source->tracks().size(), 2u);
}

TEST_F(CompositionSourceTest, ATrackOfNothingButGapsIsNone) {
  const auto source =
      compose({trackOf(1, {}), trackOf(2, {gap(range(0, 9))}), trackOf(3, {cut(range(0, 1))})});
  ASSERT_EQ(source->tracks().size(), 1u);
  EXPECT_EQ(source->tracks().front()->trackID, 3);
  EXPECT_EQ(source->duration(), seconds(9));
}

TEST_F(CompositionSourceTest, ItsTracksKnowWhereTheirSamplesComeFrom) {
  auto source = compose({trackOf(1, {cut(range(0, 1))})});
  const auto track = source->tracks().front();
  EXPECT_EQ(track->source.lock(), source);
  source.reset();
  EXPECT_TRUE(track->source.expired());
}

TEST_F(CompositionSourceTest, KeepsWhatItPointsIntoOpen) {
  auto source = compose({trackOf(1, {cut(range(0, 1))})});
  const std::weak_ptr<MemorySource> watch = file_;
  file_.reset();
  EXPECT_FALSE(watch.expired());
  source.reset();
  EXPECT_TRUE(watch.expired());
}

TEST_F(CompositionSourceTest, TellsUntilWhenATrackIsEmpty) {
  const auto source = compose(
      {trackOf(1, {gap(range(0, 2)), cut(range(2, 4)), gap(range(4, 6)), cut(range(6, 7))})});
  EXPECT_EQ(source->emptyUntil(1, seconds(0)), seconds(2));
  EXPECT_EQ(source->emptyUntil(1, seconds(2)), seconds(2));
  EXPECT_EQ(source->emptyUntil(1, seconds(3)), seconds(3));
  EXPECT_EQ(source->emptyUntil(1, seconds(4)), seconds(6));
  EXPECT_EQ(source->emptyUntil(1, seconds(7)), kCMTimePositiveInfinity);
  EXPECT_EQ(source->emptyUntil(2, seconds(0)), kCMTimePositiveInfinity);
}

TEST_F(CompositionSourceTest, ItsSoundTracksAreHeardTogether) {
  EXPECT_TRUE(compose({trackOf(1, {cut(range(0, 1))})})->soundTracksAreOne());
}

TEST_F(CompositionSourceTest, GivesTheSamplesOfASegmentAtItsPlace) {
  const auto source = compose({trackOf(1, {gap(range(0, 2)), cut(range(2, 4))})});
  const auto cursor = source->openCursor(1).valueOr(nullptr);
  ASSERT_TRUE(cursor);
  ASSERT_TRUE(cursor->seek(kCMTimeZero));
  std::vector<CMTime> times;
  Sample sample;
  while (cursor->next(sample) == Outcome::Ready) times.push_back(sample.presentation);
  EXPECT_EQ(times, (std::vector<CMTime>{seconds(2), seconds(3)}));
}

TEST_F(CompositionSourceTest, ATrackThatItDoesNotHaveCannotBeRead) {
  const auto source = compose({trackOf(1, {cut(range(0, 1))})});
  EXPECT_TRUE(source->openCursor(2).error());
}

}  // namespace
}  // namespace zaffo::media
