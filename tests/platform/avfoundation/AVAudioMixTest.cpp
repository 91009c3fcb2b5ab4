// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAudioMix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <ostream>

namespace zaffo {

void PrintTo(const AVVolumeRamp& ramp, std::ostream* out) {
  *out << CMTimeRangeDescription(ramp.range) << " " << ramp.start << " to " << ramp.end;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

CMTime tenths(int64_t value) {
  return CMTimeMake(value, 10);
}

CMTimeRange range(int64_t fromTenths, int64_t toTenths) {
  return CMTimeRangeFromTimeToTime(tenths(fromTenths), tenths(toTenths));
}

MATCHER_P4(Ramp, from, to, start, end, "") {
  return CMTimeRangeEqual(arg.range, range(from, to)) &&
         testing::Value(arg.start, testing::FloatNear(start, 1e-6f)) &&
         testing::Value(arg.end, testing::FloatNear(end, 1e-6f));
}

class AVAudioMixInputParametersTest : public testing::Test {
 protected:
  static std::shared_ptr<AVMutableAudioMixInputParameters> make() {
    AVAssetTrack track;
    track.trackID = 7;
    return AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
        std::make_shared<const AVAssetTrack>(track));
  }
  void ramp(float start, float end, int64_t from, int64_t to) {
    parameters_->setVolumeRampFromStartVolume(start, end, range(from, to));
  }
  [[nodiscard]] const std::vector<AVVolumeRamp>& ramps() const {
    return parameters_->volumeRamps();
  }

  const std::shared_ptr<AVMutableAudioMixInputParameters> parameters_ = make();
};

TEST_F(AVAudioMixInputParametersTest, BelongToTheTrackTheyWereMadeFor) {
  EXPECT_EQ(parameters_->trackID(), 7);
  EXPECT_THAT(ramps(), IsEmpty());
}

TEST_F(AVAudioMixInputParametersTest, BelongToNoTrackWithoutOne) {
  const auto none = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
      std::shared_ptr<const AVAssetTrack>());
  EXPECT_EQ(none->trackID(), 0);
}

TEST_F(AVAudioMixInputParametersTest, KeepRampsByRisingStartHoweverTheyAreSet) {
  ramp(0, 1, 20, 30);
  ramp(1, 0, 0, 10);
  parameters_->setVolume(0.5f, tenths(15));
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 10, 1, 0), Ramp(15, 15, 0.5, 0.5), Ramp(20, 30, 0, 1)));
}

TEST_F(AVAudioMixInputParametersTest, ARampSetOverTheBeginningOfAnotherLeavesItsEnd) {
  ramp(0, 1, 10, 20);
  ramp(1, 0, 5, 15);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(5, 15, 1, 0), Ramp(15, 20, 0.5, 1)));
}

TEST_F(AVAudioMixInputParametersTest, ARampSetOverTheEndOfAnotherLeavesItsBeginning) {
  ramp(0, 1, 10, 20);
  ramp(1, 0, 15, 25);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(10, 15, 0, 0.5), Ramp(15, 25, 1, 0)));
}

TEST_F(AVAudioMixInputParametersTest, ARampSetInsideAnotherLeavesBothItsEnds) {
  ramp(0, 1, 0, 40);
  ramp(1, 1, 10, 20);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 10, 0, 0.25), Ramp(10, 20, 1, 1), Ramp(20, 40, 0.5, 1)));
}

TEST_F(AVAudioMixInputParametersTest, ARampSetOverOthersReplacesThem) {
  ramp(0, 1, 0, 10);
  parameters_->setVolume(0.5f, tenths(12));
  ramp(1, 0, 20, 30);
  ramp(0.1f, 0.2f, 0, 30);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 30, 0.1f, 0.2f)));
}

TEST_F(AVAudioMixInputParametersTest, ARampOverSeveralCutsTheOutermost) {
  ramp(0, 1, 0, 10);
  ramp(1, 0, 10, 20);
  ramp(0.5f, 0.5f, 5, 15);
  EXPECT_THAT(ramps(),
              ElementsAre(Ramp(0, 5, 0, 0.5), Ramp(5, 15, 0.5, 0.5), Ramp(15, 20, 0.5, 0)));
}

TEST_F(AVAudioMixInputParametersTest, RampsThatTouchLeaveEachOtherWhole) {
  ramp(0, 1, 10, 20);
  ramp(1, 0, 20, 30);
  ramp(1, 0.5f, 0, 10);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 10, 1, 0.5), Ramp(10, 20, 0, 1), Ramp(20, 30, 1, 0)));
}

TEST_F(AVAudioMixInputParametersTest, TheRampSetLastOverTheVeryRangeHolds) {
  ramp(0, 1, 10, 20);
  ramp(1, 0.5f, 10, 20);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(10, 20, 1, 0.5)));
}

TEST_F(AVAudioMixInputParametersTest, AVolumeSetWhereARampBeginsAfterwardsGivesWay) {
  parameters_->setVolume(0, tenths(0));
  ramp(1, 0, 0, 10);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 10, 1, 0)));
}

TEST_F(AVAudioMixInputParametersTest, AVolumeSetWithinARampEndsItThere) {
  ramp(0, 1, 0, 10);
  parameters_->setVolume(0.25f, tenths(5));
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 5, 0, 0.5), Ramp(5, 5, 0.25, 0.25)));
}

TEST_F(AVAudioMixInputParametersTest, AVolumeSetWhereARampBeganReplacesIt) {
  ramp(0, 1, 0, 10);
  parameters_->setVolume(0.25f, tenths(0));
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 0, 0.25, 0.25)));
}

TEST_F(AVAudioMixInputParametersTest, AVolumeSetWhereARampEndsFollowsIt) {
  ramp(0, 1, 0, 10);
  parameters_->setVolume(0.25f, tenths(10));
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 10, 0, 1), Ramp(10, 10, 0.25, 0.25)));
}

TEST_F(AVAudioMixInputParametersTest, OfTwoVolumesAtOneTimeTheLastHolds) {
  parameters_->setVolume(0, tenths(0));
  parameters_->setVolume(0.75f, tenths(0));
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 0, 0.75, 0.75)));
}

TEST_F(AVAudioMixInputParametersTest, VolumesAreLimited) {
  ramp(-1, 4, 0, 10);
  EXPECT_THAT(ramps(), ElementsAre(Ramp(0, 10, 0, 1)));
}

TEST_F(AVAudioMixInputParametersTest, WhatIsNoTimeOrNoVolumeChangesNothing) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  constexpr float kInfinite = std::numeric_limits<float>::infinity();
  parameters_->setVolume(kNaN, tenths(0));
  parameters_->setVolume(1, kCMTimeInvalid);
  parameters_->setVolume(1, kCMTimePositiveInfinity);
  ramp(0, kInfinite, 0, 10);
  ramp(0, 1, 10, 0);
  parameters_->setVolumeRampFromStartVolume(0, 1,
                                            CMTimeRangeMake(kCMTimeZero, kCMTimePositiveInfinity));
  parameters_->setVolumeRampFromStartVolume(0, 1, kCMTimeRangeInvalid);
  EXPECT_THAT(ramps(), IsEmpty());
}

TEST(AVAudioMixTest, KeepsItsParametersInTheirOrder) {
  const auto mix = AVMutableAudioMix::audioMix();
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
  AVAssetTrack track;
  AVAudioMix::InputParameters parameters;
  for (const int id : {3, 2}) {
    track.trackID = id;
    parameters.push_back(AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
        std::make_shared<const AVAssetTrack>(track)));
  }
  mix->setInputParameters(parameters);
  EXPECT_EQ(mix->inputParameters(), parameters);
}

}  // namespace
}  // namespace zaffo
