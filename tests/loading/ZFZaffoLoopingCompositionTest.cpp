// SPDX-License-Identifier: Apache-2.0
#include "loading/ZFZaffoLoopingComposition.h"

#include <gmock/gmock.h>

#include "doubles/ScriptedAsset.h"
#include "doubles/ScriptedComposition.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Kind = CompositionCall::Kind;

constexpr int kVideo = 1;  // the tracks, in the order in which they are added
constexpr int kTrackA = 2;
constexpr int kTrackB = 3;

MATCHER_P3(IsRamp, startSeconds, volumes, seconds, "") {
  return CMTimeGetSeconds(arg.range.start) == startSeconds && arg.start == volumes.first &&
         arg.end == volumes.second && CMTimeGetSeconds(arg.range.duration) == seconds;
}

class ZFZaffoLoopingCompositionTest : public testing::Test {
 protected:
  void addSound() {
    sound = ScriptedAsset::track(AVMediaTypeAudio);
    asset.trackList = {sound, asset.trackList.front()};
  }
  bool build() { return builder.createAudioCrossFadeLoopingComposition(composition, *mix, asset); }
  std::vector<CompositionCall> insertions(int trackID) const {
    std::vector<CompositionCall> found;
    for (const auto& call : composition.calls) {
      if (call.kind == Kind::Insert && call.trackID == trackID) found.push_back(call);
    }
    return found;
  }
  std::vector<AVVolumeRamp> ramps(std::size_t track) const {
    return mix->inputParameters().at(track)->volumeRamps();
  }

  ScriptedAsset asset;
  std::shared_ptr<const AVAssetTrack> sound;
  ScriptedComposition composition;
  const std::shared_ptr<AVMutableAudioMix> mix = AVMutableAudioMix::audioMix();
  ZFZaffoLoopingComposition builder;
};

TEST_F(ZFZaffoLoopingCompositionTest, TrimsByNanoseconds) {
  const CMTime trim = ZFZaffoLoopingComposition::standardTrim();
  EXPECT_EQ(trim.value, 50'000'000);
  EXPECT_EQ(trim.timescale, 1'000'000'000);
  const CMTime both = ZFZaffoLoopingComposition::standardTotalTrimAmount();
  EXPECT_EQ(both.value, 100'000'000);
  EXPECT_EQ(both.timescale, 1'000'000'000);
}

TEST_F(ZFZaffoLoopingCompositionTest, FadesInAndHasNoLengthAtFirst) {
  EXPECT_TRUE(builder.shouldFadeIn());
  EXPECT_TRUE(CMTIME_IS_INVALID(builder.videoLength()));
  builder.setShouldFadeIn(false);
  builder.setVideoLength(CMTimeMake(1, 2));
  EXPECT_FALSE(builder.shouldFadeIn());
  EXPECT_EQ(builder.videoLength(), CMTimeMake(1, 2));
}

TEST_F(ZFZaffoLoopingCompositionTest, AnAssetWithSoundAloneFailsAndNothingIsTouched) {
  asset.trackList = {ScriptedAsset::track(AVMediaTypeAudio)};
  EXPECT_FALSE(build());
  EXPECT_THAT(composition.calls, IsEmpty());
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
  EXPECT_TRUE(CMTIME_IS_INVALID(builder.videoLength()));
}

TEST_F(ZFZaffoLoopingCompositionTest, AddsTheTracksInOrderWithTheTransformOfThePicture) {
  AVAssetTrack rotated = *asset.trackList.front();
  rotated.preferredTransform = {0, 1, -1, 0, 720, 0};
  asset.trackList = {std::make_shared<const AVAssetTrack>(rotated)};
  addSound();
  ASSERT_TRUE(build());
  ASSERT_GE(composition.calls.size(), 4u);
  const auto isAddition = [this](std::size_t call, AVMediaType type) {
    const auto& made = composition.calls[call];
    return made.kind == Kind::AddTrack && made.mediaType == type && made.preferredTrackID == 0;
  };
  EXPECT_TRUE(isAddition(0, AVMediaTypeVideo));
  EXPECT_EQ(composition.calls[1].kind, Kind::SetTransform);
  EXPECT_EQ(composition.calls[1].transform, rotated.preferredTransform);
  EXPECT_TRUE(isAddition(2, AVMediaTypeAudio));
  EXPECT_TRUE(isAddition(3, AVMediaTypeAudio));
  EXPECT_THAT(composition.added, SizeIs(3));
}

TEST_F(ZFZaffoLoopingCompositionTest, LaysPictureAndSoundDownInTurnOnAlternatingTracks) {
  asset.durationValue = CMTimeMake(7, 1);
  addSound();
  ASSERT_TRUE(build());
  const std::size_t firstInsertion = 4;
  ASSERT_EQ(composition.calls.size(), firstInsertion + 2 * 26u);
  for (std::size_t copy = 0; copy < 26; ++copy) {
    const auto& picture = composition.calls[firstInsertion + 2 * copy];
    EXPECT_EQ(picture.kind, Kind::Insert);
    EXPECT_EQ(picture.trackID, kVideo);
    const auto& heard = composition.calls[firstInsertion + 2 * copy + 1];
    EXPECT_EQ(heard.kind, Kind::Insert);
    EXPECT_EQ(heard.trackID, copy % 2 == 0 ? kTrackA : kTrackB) << "copy " << copy;
    EXPECT_EQ(heard.startTime, picture.startTime);
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, TakesTheFirstPictureAndTheFirstSound) {
  addSound();
  const auto picture = asset.tracksWithMediaType(AVMediaTypeVideo).front();
  asset.trackList.push_back(ScriptedAsset::track(AVMediaTypeAudio));
  asset.trackList.push_back(ScriptedAsset::track(AVMediaTypeVideo));
  ASSERT_TRUE(build());
  EXPECT_THAT(composition.added, SizeIs(3));
  for (const auto& copy : insertions(kVideo)) EXPECT_EQ(copy.track, picture);
  for (const int track : {kTrackA, kTrackB}) {
    for (const auto& copy : insertions(track)) EXPECT_EQ(copy.track, sound);
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, ThreeSecondsGiveSeamsEvery2Point9AndSoundOf2Point95) {
  asset.durationValue = CMTimeMake(3000, 1000);
  addSound();
  ASSERT_TRUE(build());
  EXPECT_EQ(builder.videoLength(), CMTimeMake(29, 10));
  const auto pictures = insertions(kVideo);
  ASSERT_EQ(pictures.size(), 51u);
  for (std::size_t copy = 0; copy < pictures.size(); ++copy) {
    EXPECT_EQ(pictures[copy].startTime, CMTimeMake(29 * static_cast<int64_t>(copy), 10));
    EXPECT_EQ(pictures[copy].range, CMTimeRangeMake(CMTimeMake(5, 100), CMTimeMake(29, 10)));
    EXPECT_EQ(pictures[copy].track, asset.tracksWithMediaType(AVMediaTypeVideo).front());
  }
  for (const int track : {kTrackA, kTrackB}) {
    for (const auto& heard : insertions(track)) {
      EXPECT_EQ(heard.range, CMTimeRangeMake(CMTimeMake(5, 100), CMTimeMake(295, 100)));
      EXPECT_EQ(heard.track, sound);
    }
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, SoundOfMoreThanTwoRoundsMakesWayForTheNextCopyOnItsTrack) {
  asset.durationValue = CMTimeMake(120, 1000);  // 0.02 s of picture and 0.07 s of sound a round
  addSound();
  ASSERT_TRUE(build());
  CMTime end = kCMTimeZero;
  int copies = 0;
  for (const auto& call : composition.calls) {
    if (call.trackID != kTrackA) continue;
    if (call.kind == Kind::Remove) {
      EXPECT_EQ(call.range, CMTimeRangeFromTimeToTime(CMTimeMake(4 * copies, 100), end));
      end = call.range.start;
    } else if (call.kind == Kind::Insert) {
      EXPECT_EQ(call.startTime, CMTimeMake(4 * copies, 100));
      EXPECT_EQ(call.startTime, end) << "it moves nothing on";
      end = call.startTime + CMTimeMake(7, 100);
      ++copies;
    }
  }
  EXPECT_EQ(copies, 26);
}

TEST_F(ZFZaffoLoopingCompositionTest, TheSoundOfTheLastCopyEndsATrimAfterItsPicture) {
  asset.durationValue = CMTimeMake(3, 1);
  addSound();
  composition.longestPicture = CMTimeMake(1, 1);  // the sound alone lasts for three seconds
  ASSERT_TRUE(build());
  EXPECT_EQ(composition.added[0]->timeRange().duration, CMTimeMake(51, 1));
  EXPECT_EQ(composition.added[1]->timeRange().duration, CMTimeMake(5105, 100));
  EXPECT_EQ(composition.added[2]->timeRange().duration, CMTimeMake(5105, 100));
}

TEST_F(ZFZaffoLoopingCompositionTest, NothingIsTakenOutOfSoundThatEndsATrimAfterThePicture) {
  addSound();
  for (const CMTime duration : {CMTimeMake(150, 1000), CMTimeMake(100'001, 30'000),
                                CMTimeMake(7919, 44'100), CMTimeMake(65, 10)}) {
    asset.durationValue = duration;
    ScriptedComposition filled;
    ASSERT_TRUE(builder.createAudioCrossFadeLoopingComposition(filled, *mix, asset));
    for (const auto& call : filled.calls)
      EXPECT_NE(call.kind, Kind::Remove) << CMTimeDescription(duration);
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, CountsTheCopiesByLengthWithinBounds) {
  const std::vector<std::pair<CMTime, std::size_t>> copiesOfDurations = {
      {CMTimeMake(65, 10), 26},       {CMTimeMake(1, 1), 51},
      {CMTimeMake(10, 1), 26},        {kCMTimeZero, 51},
      {CMTimeMake(325, 100), 51},     {CMTimeMake(3251, 1000), 50},
      {CMTimeMake(6, 1), 28},         {CMTimeMake(1, 2'000'000'000), 51},
      {CMTimeMake(1'000'000, 1), 26}, {kCMTimePositiveInfinity, 26},
      {kCMTimeIndefinite, 26},        {CMTimeMake(-3, 1), 26},
  };
  for (const auto& [duration, copies] : copiesOfDurations) {
    asset.durationValue = duration;
    ScriptedComposition filled;
    const auto unused = AVMutableAudioMix::audioMix();
    EXPECT_TRUE(builder.createAudioCrossFadeLoopingComposition(filled, *unused, asset));
    EXPECT_EQ(filled.calls.size() - 2, copies) << CMTimeDescription(duration);
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, AVideoWithoutSoundSucceedsAndLeavesTheMixAlone) {
  EXPECT_TRUE(build());
  EXPECT_THAT(composition.added, SizeIs(1));
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
}

TEST_F(ZFZaffoLoopingCompositionTest, TheMixHasTheParametersOfTrackAThenThoseOfTrackB) {
  addSound();
  ASSERT_TRUE(build());
  ASSERT_THAT(mix->inputParameters(), SizeIs(2));
  EXPECT_EQ(mix->inputParameters()[0]->trackID(), kTrackA);
  EXPECT_EQ(mix->inputParameters()[1]->trackID(), kTrackB);
}

const std::pair<float, float> kUp{0.f, 1.f}, kDown{1.f, 0.f}, kLoud{1.f, 1.f}, kSilent{0.f, 0.f};

TEST_F(ZFZaffoLoopingCompositionTest, FadesOneTrackOutAndTheOtherInAtEverySeam) {
  asset.durationValue = CMTimeMake(71, 10);
  addSound();
  builder.setShouldFadeIn(false);
  ASSERT_TRUE(build());
  ASSERT_THAT(ramps(0), SizeIs(26));
  ASSERT_THAT(ramps(1), SizeIs(26));
  EXPECT_THAT(ramps(0)[0], IsRamp(0.0, kLoud, 0.0));
  EXPECT_THAT(ramps(1)[0], IsRamp(0.0, kSilent, 0.0));
  for (std::size_t seam = 0; seam < 25; ++seam) {
    const double seconds = 7.0 * static_cast<double>(seam + 1);
    EXPECT_THAT(ramps(0)[seam + 1], IsRamp(seconds, seam % 2 == 0 ? kDown : kUp, 0.05));
    EXPECT_THAT(ramps(1)[seam + 1], IsRamp(seconds, seam % 2 == 0 ? kUp : kDown, 0.05));
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, TheFadeInLastsTheFirstCopyButTwoSecondsAtMost) {
  addSound();
  for (const auto& [duration, fade] :
       std::vector<std::pair<CMTime, double>>{{CMTimeMake(16, 10), 1.5},
                                              {CMTimeMake(61, 10), 2.0},
                                              {CMTimeMake(21, 10), 2.0},
                                              {CMTimeMake(2, 10), 0.1}}) {
    asset.durationValue = duration;
    ASSERT_TRUE(build());
    EXPECT_THAT(ramps(0)[0], IsRamp(0.0, kUp, fade)) << CMTimeDescription(duration);
    EXPECT_EQ(ramps(0)[0].range.duration.timescale, 10) << "the timescale of the clip";
    EXPECT_THAT(ramps(1)[0], IsRamp(0.0, kSilent, 0.0));
  }
}

TEST_F(ZFZaffoLoopingCompositionTest, ASecondBuildWritesTheLengthAnew) {
  asset.durationValue = CMTimeMake(3, 1);
  ASSERT_TRUE(build());
  asset.durationValue = CMTimeMake(4, 1);
  ASSERT_TRUE(build());
  EXPECT_EQ(builder.videoLength(), CMTimeMake(39, 10));
}

// Refusals: the asset lasts 5 s, which gives 33 copies.

class RefusalTest : public ZFZaffoLoopingCompositionTest {
 protected:
  RefusalTest() { addSound(); }
  void refuse(int trackID, int number) {
    composition.refuses = [=](int id, int insertion) {
      return id == trackID && insertion == number;
    };
  }
};

TEST_F(RefusalTest, OfTheFirstPictureEndsTheBuildBeforeItsSound) {
  refuse(kVideo, 0);
  EXPECT_FALSE(build());
  EXPECT_THAT(insertions(kVideo), SizeIs(1));
  EXPECT_THAT(insertions(kTrackA), IsEmpty());
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
  EXPECT_EQ(builder.videoLength(), CMTimeMake(49, 10)) << "it is known by then";
}

TEST_F(RefusalTest, OfALaterPictureEndsTheBuildAndLeavesWhatIsThere) {
  refuse(kVideo, 3);
  EXPECT_FALSE(build());
  EXPECT_THAT(insertions(kVideo), SizeIs(4));
  EXPECT_THAT(insertions(kTrackA), SizeIs(2));
  EXPECT_THAT(insertions(kTrackB), SizeIs(1));
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
}

TEST_F(RefusalTest, OfALaterSoundEndsTheBuild) {
  refuse(kTrackB, 1);
  EXPECT_FALSE(build());
  EXPECT_THAT(insertions(kVideo), SizeIs(4));
  EXPECT_THAT(insertions(kTrackB), SizeIs(2));
  EXPECT_THAT(insertions(kTrackA), SizeIs(2));
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
}

TEST_F(RefusalTest, OfTheFirstSoundIsToldOnlyWhenAllElseIsLaidDown) {
  refuse(kTrackA, 0);
  EXPECT_FALSE(build());
  EXPECT_THAT(insertions(kVideo), SizeIs(33));
  EXPECT_THAT(insertions(kTrackA), SizeIs(17));
  EXPECT_THAT(insertions(kTrackB), SizeIs(16));
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
}

}  // namespace
}  // namespace zaffo
