#include "platform/media/playback/RendererPace.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

constexpr int64_t kNow = 5'000'000'000;
constexpr int64_t kOverdue = RendererPace::kOverdueNanoseconds;

TEST(RendererPace, NoticesTimeThatGoesBack) {
  RendererPace pace;
  pace.begin(kNow);
  EXPECT_FALSE(pace.goesBackTo(CMTimeMake(-5, 1))) << "nothing was before";
  EXPECT_FALSE(pace.goesBackTo(CMTimeMake(3, 1)));
  EXPECT_FALSE(pace.goesBackTo(CMTimeMake(3, 1))) << "it stands still";
  EXPECT_TRUE(pace.goesBackTo(CMTimeMake(2, 1)));
  EXPECT_FALSE(pace.goesBackTo(CMTimeMake(5, 2))) << "on again from there";
}

TEST(RendererPace, OtherSamplesHaveATimeOfTheirOwn) {
  RendererPace pace;
  pace.begin(kNow);
  static_cast<void>(pace.goesBackTo(CMTimeMake(3, 1)));
  pace.begin(kNow);
  EXPECT_FALSE(pace.goesBackTo(kCMTimeZero));
}

TEST(RendererPace, APictureIsOverdueATenthOfASecondAfterTheLast) {
  RendererPace pace;
  pace.begin(kNow);
  EXPECT_FALSE(pace.isOverdue(kNow + kOverdue - 1));
  EXPECT_TRUE(pace.isOverdue(kNow + kOverdue));
  pace.notePicture(kNow + kOverdue);
  EXPECT_FALSE(pace.isOverdue(kNow + kOverdue));
  EXPECT_EQ(pace.overdueAt(), kNow + 2 * kOverdue);
  pace.begin(kNow + 5 * kOverdue);
  EXPECT_EQ(pace.overdueAt(), kNow + 6 * kOverdue);
}

}  // namespace
}  // namespace zaffo::media
