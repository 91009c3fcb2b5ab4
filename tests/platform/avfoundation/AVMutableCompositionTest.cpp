// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <thread>

#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/PlayerFixture.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {
namespace {

CMTime at(int64_t milliseconds) {
  return CMTimeMake(milliseconds, 1000);
}

CMTimeRange range(int64_t startMilliseconds, int64_t durationMilliseconds) {
  return {at(startMilliseconds), at(durationMilliseconds)};
}

/// Source, its start, target start and duration of each segment, in milliseconds: "A100@0+500", and
/// "-@500+250" for an empty one.
std::string describe(const AVMutableCompositionTrack& track) {
  const auto milliseconds = [](CMTime time) {
    const CMTime scaled = CMTimeConvertScale(time, 1000);
    EXPECT_EQ(scaled, time) << CMTimeDescription(time);
    return std::to_string(scaled.value);
  };
  std::string text;
  for (const auto& segment : track.segments()) {
    EXPECT_EQ(segment.source.duration, segment.target.duration);
    if (!text.empty()) text += " ";
    text += segment.isEmpty() ? "-" : "A" + milliseconds(segment.source.start);
    text += "@" + milliseconds(segment.target.start) + "+" + milliseconds(segment.target.duration);
  }
  return text;
}

class AVMutableCompositionTest : public PlayerFixture {
 protected:
  /// Without an error unless the range is refused.
  bool insert(CMTimeRange timeRange, CMTime startTime) {
    NSErrorPtr error;
    const bool inserted = track_->insertTimeRange(timeRange, source_, startTime, &error);
    EXPECT_EQ(inserted, error == nullptr);
    if (!error) return inserted;
    EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
    EXPECT_FALSE(error->localizedDescription().empty());
    return inserted;
  }

  std::shared_ptr<AVAsset> asset_ = loadedAsset(test::clip("h264_30.mp4"));  // 4 s
  std::shared_ptr<const AVAssetTrack> source_ =
      asset_->tracksWithMediaType(AVMediaTypeVideo).front();
  std::shared_ptr<AVMutableComposition> composition_ = AVMutableComposition::create();
  std::shared_ptr<AVMutableCompositionTrack> track_ =
      composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
};

TEST_F(AVMutableCompositionTest, IsEmptyAtFirst) {
  EXPECT_TRUE(track_->segments().empty());
  EXPECT_FALSE(CMTIMERANGE_IS_VALID(track_->timeRange()));
  EXPECT_EQ(composition_->duration(), kCMTimeZero);
  EXPECT_FALSE(composition_->isPlayable());
  EXPECT_EQ(composition_->tracks().size(), 1u);
}

TEST_F(AVMutableCompositionTest, RangesFollowEachOtherWhereTheyAreInserted) {
  ASSERT_TRUE(insert(range(100, 500), kCMTimeZero));
  EXPECT_EQ(track_->timeRange(), range(0, 500));
  ASSERT_TRUE(insert(range(0, 250), at(500)));
  ASSERT_TRUE(insert(range(1000, 50), at(750)));
  EXPECT_EQ(describe(*track_), "A100@0+500 A0@500+250 A1000@750+50");
  EXPECT_EQ(track_->timeRange(), range(0, 800));
  EXPECT_EQ(composition_->duration(), at(800));
}

TEST_F(AVMutableCompositionTest, AnInsertionAtNoTimeInParticularGoesToTheEnd) {
  ASSERT_TRUE(insert(range(100, 500), kCMTimeInvalid));
  ASSERT_TRUE(insert(range(0, 250), kCMTimeInvalid));
  EXPECT_EQ(describe(*track_), "A100@0+500 A0@500+250");
}

TEST_F(AVMutableCompositionTest, AnInsertionBetweenSegmentsMovesWhatFollows) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  ASSERT_TRUE(insert(range(1000, 500), at(500)));
  ASSERT_TRUE(insert(range(2000, 100), at(500)));
  EXPECT_EQ(describe(*track_), "A0@0+500 A2000@500+100 A1000@600+500");
  ASSERT_TRUE(insert(range(3000, 10), at(0)));
  EXPECT_EQ(describe(*track_), "A3000@0+10 A0@10+500 A2000@510+100 A1000@610+500");
}

TEST_F(AVMutableCompositionTest, AnInsertionWithinASegmentSplitsIt) {
  ASSERT_TRUE(insert(range(1000, 500), at(0)));
  ASSERT_TRUE(insert(range(3000, 100), at(200)));
  EXPECT_EQ(describe(*track_), "A1000@0+200 A3000@200+100 A1200@300+300");
}

TEST_F(AVMutableCompositionTest, AGapBeforeAnInsertionBecomesAnEmptySegment) {
  ASSERT_TRUE(insert(range(1000, 500), at(250)));
  EXPECT_EQ(describe(*track_), "-@0+250 A1000@250+500");
  ASSERT_TRUE(insert(range(0, 100), at(1000)));
  EXPECT_EQ(describe(*track_), "-@0+250 A1000@250+500 -@750+250 A0@1000+100");
  ASSERT_TRUE(insert(range(2000, 10), at(800)));
  EXPECT_EQ(describe(*track_), "-@0+250 A1000@250+500 -@750+50 A2000@800+10 -@810+200 A0@1010+100");
}

TEST_F(AVMutableCompositionTest, ARangeIsCutOffWhereTheSourceEnds) {
  ASSERT_TRUE(insert(range(3800, 500), at(0)));
  EXPECT_EQ(describe(*track_), "A3800@0+200");
}

TEST_F(AVMutableCompositionTest, WhatComesBeforeALateTrackKeepsItsPlaceAsAnEmptySegment) {
  const auto late = loadedAsset(test::clip("late_video.mp4"));  // begins after 0.5 s
  source_ = late->tracksWithMediaType(AVMediaTypeVideo).front();
  ASSERT_TRUE(insert(range(100, 1000), at(0)));
  EXPECT_EQ(describe(*track_), "-@0+400 A500@400+600");
}

TEST_F(AVMutableCompositionTest, RefusesWhatCannotBeInsertedAndStaysAsItWas) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  for (const CMTime time : {at(-1), kCMTimeIndefinite, kCMTimePositiveInfinity}) {
    EXPECT_FALSE(insert(range(0, 500), time)) << CMTimeDescription(time);
    EXPECT_FALSE(insert({time, at(500)}, at(0))) << CMTimeDescription(time);
    EXPECT_FALSE(insert({at(0), time}, at(0))) << CMTimeDescription(time);
  }
  EXPECT_FALSE(insert({kCMTimeInvalid, at(500)}, at(0)));
  EXPECT_FALSE(insert({at(0), kCMTimeInvalid}, at(0)));
  EXPECT_FALSE(insert(range(0, 0), at(0)));
  EXPECT_FALSE(insert(range(4000, 500), at(0)));
  EXPECT_FALSE(insert(range(9000, 500), at(0)));
  source_ = asset_->tracksWithMediaType(AVMediaTypeAudio).front();
  EXPECT_FALSE(insert(range(0, 500), at(0)));
  source_ = nullptr;
  EXPECT_FALSE(insert(range(0, 500), at(0)));
  EXPECT_EQ(describe(*track_), "A0@0+500");
  EXPECT_FALSE(track_->insertTimeRange(range(0, 500), nullptr, at(0), nullptr));
}

TEST_F(AVMutableCompositionTest, SoundThatIsNotThereIsSilenceAndAPictureThatIsNotThereIsRefused) {
  const auto sound = asset_->tracksWithMediaType(AVMediaTypeAudio).front();
  const auto heard = composition_->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  EXPECT_TRUE(heard->insertTimeRange(range(5000, 500), sound, at(0), nullptr));
  EXPECT_TRUE(heard->segments().empty());
  EXPECT_TRUE(heard->insertTimeRange(range(1000, 500), sound, at(0), nullptr));
  EXPECT_TRUE(heard->insertTimeRange(range(5000, 500), sound, at(200), nullptr));
  EXPECT_EQ(describe(*heard), "A1000@0+500");
  EXPECT_FALSE(heard->insertTimeRange(range(1000, -500), sound, at(0), nullptr));
  EXPECT_FALSE(insert(range(5000, 500), at(0)));
}

TEST_F(AVMutableCompositionTest, WhatFollowsARemovedRangeMovesUp) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  ASSERT_TRUE(insert(range(1000, 500), at(500)));
  ASSERT_TRUE(insert(range(2000, 500), at(1500)));
  ASSERT_EQ(describe(*track_), "A0@0+500 A1000@500+500 -@1000+500 A2000@1500+500");
  track_->removeTimeRange(range(400, 200));
  EXPECT_EQ(describe(*track_), "A0@0+400 A1100@400+400 -@800+500 A2000@1300+500");
  track_->removeTimeRange(range(400, 400));
  EXPECT_EQ(describe(*track_), "A0@0+400 -@400+500 A2000@900+500");
  track_->removeTimeRange(range(100, 200));
  EXPECT_EQ(describe(*track_), "A0@0+100 A300@100+100 -@200+500 A2000@700+500");
  track_->removeTimeRange(range(600, 9000));
  EXPECT_EQ(describe(*track_), "A0@0+100 A300@100+100 -@200+400");
  EXPECT_EQ(composition_->duration(), at(600));
  track_->removeTimeRange(range(0, 600));
  EXPECT_TRUE(track_->segments().empty());
}

TEST_F(AVMutableCompositionTest, RemovingWhatIsNotThereChangesNothing) {
  track_->removeTimeRange(range(0, 100));
  ASSERT_TRUE(insert(range(1000, 500), at(0)));
  const auto before = composition_->copy();
  for (const CMTimeRange none :
       {range(500, 100), range(100, 0), range(100, -50), range(-100, 200), kCMTimeRangeInvalid,
        CMTimeRange{at(100), kCMTimePositiveInfinity}}) {
    track_->removeTimeRange(none);
    EXPECT_EQ(describe(*track_), "A1000@0+500");
  }
  EXPECT_EQ(composition_->copy(), before);
  track_->removeTimeRange(range(100, 100));
  EXPECT_NE(composition_->copy(), before);
  EXPECT_EQ(before->duration(), at(500)) << "a copy stays as it was";
  EXPECT_EQ(before->sampleSource()->emptyUntil(track_->trackID(), at(450)), at(450));
}

TEST_F(AVMutableCompositionTest, RefusesATrackWhoseAssetIsGone) {
  asset_.reset();
  EXPECT_FALSE(insert(range(0, 500), at(0)));
}

TEST_F(AVMutableCompositionTest, KeepsItsSourcesOpen) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  asset_.reset();
  EXPECT_TRUE(insert(range(0, 500), at(500)));
  EXPECT_NE(composition_->sampleSource(), nullptr);
}

/// How many of the process's file descriptors lead to a file.
int descriptorsOf(const std::string& path) {
  namespace fs = std::filesystem;
  int count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the one that the folder itself is read through
    count += fs::read_symlink(entry, gone) == fs::canonical(path) && !gone;
  }
  return count;
}

TEST_F(AVMutableCompositionTest, FiftyOneCopiesAreFiftyOneSegmentsAndOneOpenedSource) {
  const auto sound = composition_->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  const auto soundSource = asset_->tracksWithMediaType(AVMediaTypeAudio).front();
  for (int i = 0; i < 51; ++i) {
    ASSERT_TRUE(insert(range(50, 3900), kCMTimeInvalid));
    ASSERT_TRUE(sound->insertTimeRange(range(50, 3900), soundSource, kCMTimeInvalid, nullptr));
  }
  EXPECT_EQ(track_->segments().size(), 51u);
  for (const auto& segment : track_->segments()) EXPECT_EQ(segment.sourceTrack, source_);
  const std::string path = test::clip("h264_30.mp4");
  EXPECT_EQ(descriptorsOf(path), 1);
  const auto item = AVPlayerItem::playerItemWithAsset(composition_);
  player_->replaceCurrentItemWithPlayerItem(item);
  player_->setRate(1);
  time_.advance(8 * kNanosecondsPerSecond);
  EXPECT_GT(seconds(), 7.8) << "two seams are behind it";
  EXPECT_EQ(descriptorsOf(path), 1);
}

TEST_F(AVMutableCompositionTest, TheDurationIsThatOfTheLongestTrack) {
  const auto second = composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  ASSERT_TRUE(second->insertTimeRange(range(0, 100), source_, at(600), nullptr));
  EXPECT_EQ(composition_->duration(), at(700));
  EXPECT_EQ(track_->timeRange(), range(0, 500));
  EXPECT_EQ(second->timeRange(), range(0, 700));
}

TEST_F(AVMutableCompositionTest, TracksHaveIDsOfTheirOwn) {
  EXPECT_EQ(track_->trackID(), 1);
  const auto id = [this](int preferred) {
    return composition_->addMutableTrackWithMediaType(AVMediaTypeAudio, preferred)->trackID();
  };
  EXPECT_EQ(id(7), 7);
  EXPECT_EQ(id(7), 8);
  EXPECT_EQ(id(0), 9);
  EXPECT_EQ(id(-3), 10);
  EXPECT_EQ(composition_->mutableTracks().size(), 5u);
  EXPECT_EQ(composition_->mutableTracks().front(), track_);
}

TEST_F(AVMutableCompositionTest, ItsTracksAreDescribedByTheirFirstSource) {
  track_->setPreferredTransform({0, 1, -1, 0, 108, 0});
  ASSERT_TRUE(insert(range(0, 500), at(100)));
  const auto described = composition_->tracksWithMediaType(AVMediaTypeVideo).front();
  EXPECT_EQ(described->trackID, track_->trackID());
  EXPECT_EQ(described->codec, "h264");
  EXPECT_EQ(described->naturalSize.width, 192);
  EXPECT_EQ(described->nominalFrameRate, 30);
  EXPECT_EQ(described->preferredTransform.b, 1);
  EXPECT_EQ(track_->preferredTransform().tx, 108);
  EXPECT_EQ(described->timeRange, range(0, 600));
  EXPECT_EQ(described->source.lock(), composition_->sampleSource());
}

TEST_F(AVMutableCompositionTest, EveryKeyIsLoadedAndTheHandlerIsCalledAfterTheCall) {
  for (const auto& asset : {std::shared_ptr<AVAsset>(composition_), composition_->copy()}) {
    bool called = false;
    std::thread::id thread;
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [&] {
      called = true;
      thread = std::this_thread::get_id();
    });
    time_.settle();
    EXPECT_TRUE(called);
    EXPECT_NE(thread, std::this_thread::get_id());
    for (const char* key : {"tracks", "duration", "playable", "readable"}) {
      EXPECT_EQ(asset->statusOfValueForKey(key), AVKeyValueStatus::Loaded) << key;
    }
    NSErrorPtr error;
    EXPECT_EQ(asset->statusOfValueForKey("colour", &error), AVKeyValueStatus::Failed);
    EXPECT_NE(error, nullptr);
  }
}

TEST_F(AVMutableCompositionTest, IsReadableAndPlayableWithItsSources) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  EXPECT_TRUE(composition_->isReadable());
  EXPECT_TRUE(composition_->isPlayable());
}

TEST_F(AVMutableCompositionTest, OneOfWhatCannotBeDecodedIsNotPlayable) {
  for (const char* name : {"protected.mp4", "unknown_codec_with_sound.mp4"}) {
    const auto bad = loadedAsset(test::clip(name));
    composition_ = AVMutableComposition::create();
    track_ = composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    ASSERT_TRUE(insert(range(0, 200), at(0)));
    EXPECT_TRUE(composition_->isPlayable());
    const auto picture = bad->tracksWithMediaType(AVMediaTypeVideo).front();
    ASSERT_TRUE(track_->insertTimeRange(range(0, 200), picture, at(200), nullptr));
    EXPECT_FALSE(composition_->isPlayable()) << name;
  }
}

TEST_F(AVMutableCompositionTest, ACopyStaysAsItWas) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  const auto copy = composition_->copy();
  const auto before = copy->sampleSource();
  ASSERT_TRUE(insert(range(1000, 500), at(500)));
  track_->setPreferredTransform({-1, 0, 0, -1, 0, 0});
  (void)composition_->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  EXPECT_EQ(copy->duration(), at(500));
  EXPECT_EQ(copy->tracks().size(), 1u);
  EXPECT_EQ(copy->tracks().front()->preferredTransform.a, 1);
  EXPECT_EQ(copy->tracks().front()->timeRange, range(0, 500));
  EXPECT_EQ(copy->sampleSource(), before);
  EXPECT_EQ(copy->copy(), copy);
  EXPECT_EQ(composition_->duration(), at(1000));
}

TEST_F(AVMutableCompositionTest, CopiesOfOneStateAreOne) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  EXPECT_EQ(composition_->copy()->sampleSource(), composition_->copy()->sampleSource());
  EXPECT_EQ(composition_->sampleSource(), composition_->copy()->sampleSource());
}

TEST_F(AVMutableCompositionTest, AnItemPlaysWhatTheCompositionWasWhenItWasMade) {
  ASSERT_TRUE(insert(range(0, 500), at(0)));
  const auto item = AVPlayerItem::playerItemWithAsset(composition_);
  ASSERT_TRUE(insert(range(1000, 500), at(500)));
  EXPECT_EQ(item->duration(), at(500));
  EXPECT_EQ(AVPlayerItem::playerItemWithAsset(composition_)->duration(), at(1000));
}

TEST_F(AVMutableCompositionTest, ACompositionsTrackCanBeInsertedIntoAnother) {
  ASSERT_TRUE(insert(range(1000, 500), at(0)));
  const auto fixed = composition_->copy();
  const auto outer = AVMutableComposition::create();
  const auto track = outer->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  EXPECT_TRUE(track->insertTimeRange(range(100, 200), fixed->tracks().front(), at(0), nullptr));
  EXPECT_EQ(outer->duration(), at(200));
}

/// What insertions come to, a list of which millisecond of the source is at each of the track's.
class NaiveTrack {
 public:
  void insert(int start, int duration, int place) {
    if (place > static_cast<int>(list_.size())) list_.resize(static_cast<std::size_t>(place), -1);
    std::vector<int> inserted;
    for (int i = start; i < start + duration && i < 4000; ++i) inserted.push_back(i);
    list_.insert(list_.begin() + place, inserted.begin(), inserted.end());
  }
  void remove(int start, int duration) {
    const int end = std::min(start + duration, static_cast<int>(list_.size()));
    if (start < end) list_.erase(list_.begin() + start, list_.begin() + end);
  }
  [[nodiscard]] const std::vector<int>& list() const { return list_; }

 private:
  std::vector<int> list_;
};

std::vector<int> listOf(const AVMutableCompositionTrack& track) {
  std::vector<int> list;
  const auto whole = [](CMTime time) {
    const CMTime scaled = CMTimeConvertScale(time, 1000);
    EXPECT_EQ(scaled, time) << CMTimeDescription(time);
    return static_cast<int>(scaled.value);
  };
  for (const auto& segment : track.segments()) {
    EXPECT_EQ(whole(segment.target.start), static_cast<int>(list.size()));
    for (int i = 0; i < whole(segment.target.duration); ++i) {
      list.push_back(segment.isEmpty() ? -1 : whole(segment.source.start) + i);
    }
  }
  return list;
}

TEST_F(AVMutableCompositionTest, RandomChangesComeToWhatANaiveListComesTo) {
  const auto seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto pick = [&](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  for (int round = 0; round < 20; ++round) {
    NaiveTrack naive;
    composition_ = AVMutableComposition::create();
    track_ = composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    for (int i = 0; i < 12; ++i) {
      const int start = pick(0, 3999), duration = pick(1, 900);
      const int place = pick(0, static_cast<int>(naive.list().size()) + 300);
      ASSERT_TRUE(insert(range(start, duration), at(place)));
      naive.insert(start, duration, place);
      if (pick(0, 2) > 0) continue;
      const int from = pick(0, static_cast<int>(naive.list().size())), length = pick(1, 600);
      track_->removeTimeRange(range(from, length));
      naive.remove(from, length);
    }
    ASSERT_EQ(listOf(*track_), naive.list());
    ASSERT_EQ(composition_->duration(), at(static_cast<int64_t>(naive.list().size())));
  }
}

TEST_F(AVMutableCompositionTest, LengthsAtTimescalesThatHaveNothingInCommonDoNotDrift) {
  const CMTime lengths[] = {CMTimeMake(2'900'000'001, 1'000'000'000), CMTimeMake(1741, 600),
                            CMTimeMake(2901, 1000), CMTimeMake(87'087, 30'000),
                            CMTimeMake(261'001, 90'000)};
  long double expected = 0;
  CMTime end = kCMTimeZero;
  for (int i = 0; i < 1000; ++i) {
    const CMTime length = lengths[i % 5];
    ASSERT_TRUE(insert({CMTimeMake(50'000'000, 1'000'000'000), length}, end));
    expected += static_cast<long double>(length.value) / length.timescale;
    end = CMTimeRangeGetEnd(track_->timeRange());
  }
  EXPECT_EQ(track_->segments().size(), 1000u);  // none was split or spaced by rounding
  EXPECT_NEAR(static_cast<double>(end.value / static_cast<long double>(end.timescale) - expected),
              0, 1e-6);
}

TEST_F(AVMutableCompositionTest, EqualLengthsAddUpToTheirMultiple) {
  for (const CMTime duration : {CMTimeMake(1800, 600), CMTimeMake(3003, 1001),
                                CMTimeMake(90'090, 30'000), CMTimeMake(46'080, 15'360)}) {
    composition_ = AVMutableComposition::create();
    track_ = composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    const CMTime length = duration - CMTimeMakeWithSeconds(0.1, 1'000'000'000);
    for (int i = 0; i < 51; ++i) {
      const CMTime end = i == 0 ? kCMTimeZero : track_->timeRange().duration;
      ASSERT_EQ(end, CMTimeMultiply(length, i));
      ASSERT_TRUE(insert({CMTimeMakeWithSeconds(0.05, 1'000'000'000), length}, end));
    }
    EXPECT_EQ(track_->segments().size(), 51u);
    EXPECT_EQ(track_->timeRange().duration, CMTimeMultiply(length, 51));
  }
}

}  // namespace
}  // namespace zaffo
