// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CompositionCursor.h"

#include <random>

#include "platform/foundation/AVError.h"
#include "platform/media/source/Composing.h"

namespace zaffo::media {
namespace {

using test::clip;

constexpr CMTime kTrim = CMTimeMake(50'000'000, 1'000'000'000);

CMTime at(int64_t milliseconds) {
  return CMTimeMake(milliseconds, 1000);
}

CMTimeRange range(int64_t startMilliseconds, int64_t durationMilliseconds) {
  return {at(startMilliseconds), at(durationMilliseconds)};
}

/// What a loop repeats: all but 0.05 s at either end.
CMTimeRange trimmed(const SampleSource& source) {
  return {kTrim, source.duration() - kTrim - kTrim};
}

std::vector<Cut> copies(const std::shared_ptr<SampleSource>& source, CMTimeRange whole, int count) {
  return std::vector<Cut>(static_cast<std::size_t>(count), Cut{source, whole});
}

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  std::ranges::replace(name, '.', '_');
  return name;
}

/// Whatever is true of the samples of any composition.
void expectRunningOn(const std::vector<Sample>& samples) {
  CMTime lastDecode = kCMTimeNegativeInfinity;
  for (const Sample& sample : samples) {
    if (CMTIME_IS_NUMERIC(sample.decode)) {
      EXPECT_GE(sample.decode, lastDecode);
      EXPECT_LE(sample.decode, sample.presentation);
      lastDecode = sample.decode;
    }
    EXPECT_TRUE(sample.sync || !sample.isDiscontinuity);
  }
}

class PicturesOf : public testing::TestWithParam<const char*> {};

TEST_P(PicturesOf, TenCopiesAreThoseOfOneTenTimes) {
  const auto pictures = picturesOf(clip(GetParam()));
  const auto source = openClip(clip(GetParam()));
  const CMTimeRange whole = trimmed(*source);
  const auto composition = compose(copies(source, whole, 10), AVMediaTypeVideo);
  std::vector<Shown> expected;
  for (int i = 0; i < 10; ++i) {
    appendCut(pictures, whole, CMTimeMultiply(whole.duration, i), expected);
  }
  const auto cursor = openTrack(*composition, AVMediaTypeVideo);
  expectSame(decodeShown(*cursor), expected);
  ASSERT_TRUE(cursor->seek(kCMTimeZero));
  expectRunningOn(readAll(*cursor));
}

TEST_P(PicturesOf, AnyPiecesInAnyOrderAreThoseOfThePieces) {
  const auto seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto pictures = picturesOf(clip(GetParam()));
  const auto source = openClip(clip(GetParam()));
  const auto length = CMTimeConvertScale(source->duration(), 1000).value;
  const auto pick = [&](int64_t low, int64_t high) {
    return std::uniform_int_distribution<int64_t>(low, high)(random);
  };
  std::vector<Cut> cuts;
  std::vector<Shown> expected;
  CMTime end = kCMTimeZero;
  for (int i = 0; i < 12; ++i) {
    const int64_t start = pick(0, length - 2);
    const CMTimeRange piece = range(start, pick(1, std::min<int64_t>(400, length - start)));
    const bool gap = i % 5 == 4;
    cuts.push_back({gap ? nullptr : source, piece});
    if (!gap) appendCut(pictures, piece, end, expected);
    end = end + piece.duration;
  }
  const auto composition = compose(cuts, AVMediaTypeVideo);
  const auto cursor = openTrack(*composition, AVMediaTypeVideo);
  expectSame(decodeShown(*cursor), expected);
  ASSERT_TRUE(cursor->seek(kCMTimeZero));
  expectRunningOn(readAll(*cursor));
}

TEST_P(PicturesOf, EachCanBeASegmentOfItsOwnWhateverIsDecodedBeforeIt) {
  const auto pictures = picturesOf(clip(GetParam()));
  const auto source = openClip(clip(GetParam()));
  std::vector<Cut> cuts;
  std::vector<Shown> expected;
  for (std::size_t i = pictures.size() - 1; i-- > 0 && cuts.size() < 40;) {
    const CMTime length = pictures[i + 1].from - pictures[i].from;
    expected.push_back(
        {pictures[i].number,
         cuts.empty() ? kCMTimeZero : expected.back().from + cuts.back().range.duration});
    cuts.push_back({source, {pictures[i].from, length}});
  }
  const auto composition = compose(cuts, AVMediaTypeVideo);
  expectSame(decodeShown(*openTrack(*composition, AVMediaTypeVideo)), expected);
}

/// The number of the picture with the largest time up to `time`.
std::optional<int> numberAt(const std::vector<Shown>& pictures, CMTime time) {
  std::optional<int> number;
  CMTime latest = kCMTimeNegativeInfinity;
  for (const Shown& shown : pictures) {
    if (shown.from > time || shown.from < latest) continue;
    latest = shown.from;
    number = shown.number;
  }
  return number;
}

TEST_P(PicturesOf, ASeekGoesWhereTheFrameOfAnyTimeCanBeDecoded) {
  const auto source = openClip(clip(GetParam()));
  const auto composition =
      compose({{source, range(70, 500)}, {nullptr, range(0, 100)}, {source, range(333, 400)}},
              AVMediaTypeVideo);
  const auto cursor = openTrack(*composition, AVMediaTypeVideo);
  const auto all = decodeShown(*cursor);
  for (int64_t time = 990; time >= 0; time -= 45) {
    ASSERT_TRUE(cursor->seek(at(time)));
    EXPECT_EQ(numberAt(decodeShown(*cursor), at(time)), numberAt(all, at(time))) << time;
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, PicturesOf,
                         testing::Values("h264_24.mp4", "h264_25.mp4", "h264_ntsc.mp4",
                                         "h264_30.mp4", "h264_50.mp4", "h264_60.mp4", "vfr.mp4",
                                         "open_gop.mp4", "long_gop.mp4", "interlaced.mp4",
                                         "no_b_frames.mp4", "hevc.mp4", "vp9_opus.webm",
                                         "vp8_vorbis.webm", "av1.mp4", "mpeg4_mp3.mp4", "h264.mkv",
                                         "fragmented.mp4", "edit_list.mp4", "edit_list_hevc.mp4",
                                         "hevc.mkv", "rotated_90.mp4", "short_audio.mp4"),
                         nameOf);

TEST(CompositionCursor, GivesNothingThatIsNotNeeded) {
  const auto source = openClip(clip("no_b_frames.mp4"));  // key frames at 0 and 1 s
  const auto composition =
      compose({{source, range(50, 200)}, {source, range(1000, 100)}}, AVMediaTypeVideo);
  const auto samples = readAll(*openTrack(*composition, AVMediaTypeVideo));
  // Frames 0 to 7, of which 0 is over at the start, then 30 to 32.
  ASSERT_EQ(samples.size(), 11u);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(!samples[i].decodeOnly, i != 0) << i;
    EXPECT_EQ(samples[i].isDiscontinuity, i == 0 || i == 8) << i;
  }
  EXPECT_EQ(samples[1].presentation, kCMTimeZero);
  EXPECT_EQ(samples[1].duration, CMTimeMake(1, 60));  // of 1/30 s, half is cut off
  EXPECT_EQ(samples[7].presentation + samples[7].duration, at(200));
  EXPECT_EQ(samples[8].presentation, at(200));
}

TEST(CompositionCursor, GivesWhatLiesBeyondTheEndOnlyWhenWhatIsShownNeedsIt) {
  const auto source = openClip(clip("h264_30.mp4"));
  const auto file = readAll(*openTrack(*source, AVMediaTypeVideo));
  for (int64_t end = 100; end < 900; end += 33) {
    const auto samples = readAll(
        *openTrack(*compose({{source, range(0, end)}}, AVMediaTypeVideo), AVMediaTypeVideo));
    ASSERT_FALSE(samples.empty());
    EXPECT_FALSE(samples.back().decodeOnly) << end;
    const auto shown = std::ranges::count(samples, false, &Sample::decodeOnly);
    EXPECT_EQ(shown, std::ranges::count_if(
                         file, [&](const Sample& s) { return s.presentation < at(end); }));
    EXPECT_LE(samples.size() - static_cast<std::size_t>(shown), 2u);
  }
}

/// Counts the cursors that are opened of another source.
class CountingSource : public SampleSource {
 public:
  explicit CountingSource(std::shared_ptr<SampleSource> source) : source_(std::move(source)) {}
  const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  CMTime duration() const override { return source_->duration(); }
  Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) override {
    ++opened;
    return source_->openCursor(trackID);
  }
  /// Tracks that lead to `self`.
  static std::shared_ptr<CountingSource> of(std::shared_ptr<SampleSource> source) {
    const auto self = std::make_shared<CountingSource>(source);
    for (const auto& track : source->tracks()) {
      auto own = std::make_shared<AVAssetTrack>(*track);
      own->source = self;
      self->tracks_.push_back(std::move(own));
    }
    return self;
  }
  int opened = 0;

 private:
  const std::shared_ptr<SampleSource> source_;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
};

TEST(CompositionCursor, OpensOneCursorForAllSegmentsOfATrack) {
  const auto source = CountingSource::of(openClip(clip("h264_30.mp4")));
  const auto composition = compose(copies(source, range(50, 200), 51), AVMediaTypeVideo);
  EXPECT_EQ(source->opened, 0);
  const auto cursor = openTrack(*composition, AVMediaTypeVideo);
  EXPECT_GT(readAll(*cursor).size(), 51u * 6);
  ASSERT_TRUE(cursor->seek(at(3000)));
  EXPECT_GT(readAll(*cursor).size(), 30u * 6);
  EXPECT_EQ(source->opened, 1);
}

TEST(CompositionCursor, SegmentsOfDifferentSourcesAreDecodedByDifferentCodecs) {
  const char* names[] = {"h264_30.mp4", "vp9_opus.webm", "hevc.mp4", "portrait.mp4"};
  std::vector<Cut> cuts;
  std::vector<Shown> expected;
  for (int i = 0; i < 8; ++i) {
    const char* name = names[i % 4];
    appendCut(picturesOf(clip(name)), range(150, 300), at(300 * i), expected);
    cuts.push_back({openClip(clip(name)), range(150, 300)});
  }
  const auto cursor = openTrack(*compose(cuts, AVMediaTypeVideo), AVMediaTypeVideo);
  expectSame(decodeShown(*cursor), expected);
}

TEST(CompositionCursor, ASegmentWithoutLengthShowsNothing) {
  const auto source = openClip(clip("h264_30.mp4"));
  const CMTimeRange sliver{at(500), CMTimeMake(1, kCMTimeMaxTimescale)};
  const auto composition = compose(
      {{source, range(0, 100)}, {source, sliver}, {source, range(100, 100)}}, AVMediaTypeVideo);
  const auto shown = decodeShown(*openTrack(*composition, AVMediaTypeVideo));
  ASSERT_EQ(shown.size(), 6u);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(shown[static_cast<std::size_t>(i)].number, i);
}

TEST(CompositionCursor, AFrameThatBeginsAtTheEndIsNotShownForTheRoundingOfTheEnd) {
  // The last frame that is kept ends exactly where the trimmed range does: 2.95 s is frame 177.
  const auto source = openClip(clip("h264_60.mp4"));
  const CMTimeRange whole = trimmed(*source);
  EXPECT_TRUE(CMTIME_HAS_BEEN_ROUNDED(CMTimeRangeGetEnd(whole)));
  const auto shown = decodeShown(
      *openTrack(*compose(copies(source, whole, 3), AVMediaTypeVideo), AVMediaTypeVideo));
  ASSERT_EQ(shown.size(), 3u * 114);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    EXPECT_EQ(shown[i].number, 3 + static_cast<int>(i % 114));
  }
}

TEST(CompositionCursor, EmptyTracksAndUnknownOnesAreErrors) {
  const auto composition = compose({{nullptr, range(0, 100)}}, AVMediaTypeVideo);
  EXPECT_TRUE(composition->tracks().empty());
  EXPECT_EQ(composition->duration(), at(100));
  const NSErrorPtr error = composition->openCursor(1).error();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
}

TEST(CompositionCursor, ACutFileGivesWhatIsWholeAndThenAnError) {
  const auto source = openClip(clip("cut_5.mp4"));
  const auto composition = compose(copies(source, range(50, 3900), 2), AVMediaTypeVideo);
  const auto cursor = openTrack(*composition, AVMediaTypeVideo);
  EXPECT_GT(readAll(*cursor, Outcome::Error).size(), 30u);
  EXPECT_TRUE(cursor->error());
  ASSERT_TRUE(cursor->seek(at(4000)));
  Sample sample;
  EXPECT_EQ(cursor->next(sample), Outcome::Ready);
  EXPECT_FALSE(cursor->error());
}

class SoundOf : public testing::TestWithParam<const char*> {};

TEST_P(SoundOf, TenCopiesStandWhereTheSegmentsSay) {
  const auto source = openClip(clip(GetParam()));
  const CMTimeRange whole{kTrim, source->duration() - kTrim};
  const auto composition = compose(copies(source, whole, 10), AVMediaTypeAudio);
  const auto samples = readAll(*openTrack(*composition, AVMediaTypeAudio));
  int segment = -1;
  CMTime covered = kCMTimeZero;
  for (const Sample& sample : samples) {
    if (sample.isDiscontinuity) {
      EXPECT_GE(covered + at(50), CMTimeMultiply(whole.duration, segment + 1));
      ++segment;
      covered = CMTimeMultiply(whole.duration, segment);
      EXPECT_LE(sample.presentation, covered);
    }
    EXPECT_EQ(sample.heardFrom, CMTimeMultiply(whole.duration, segment));
    EXPECT_LE(sample.heardUntil, CMTimeMultiply(whole.duration, segment + 1));
    if (sample.decodeOnly) continue;
    EXPECT_LE(sample.presentation, covered + at(31));
    covered = CMTimeMaximum(covered, sample.presentation + sample.duration);
  }
  EXPECT_EQ(segment, 9);
}

INSTANTIATE_TEST_SUITE_P(Clips, SoundOf,
                         testing::Values("h264_30.mp4", "mpeg4_mp3.mp4", "vp9_opus.webm",
                                         "vp8_vorbis.webm", "h264_ac3.mp4", "h264_flac.mp4",
                                         "h264_pcm.mov", "audio.mp3", "audio.opus", "audio.flac",
                                         "audio.wav", "audio_only.m4a"),
                         nameOf);

}  // namespace
}  // namespace zaffo::media
