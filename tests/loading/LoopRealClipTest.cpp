// SPDX-License-Identifier: Apache-2.0

// Loops of clips that other people made: each round is like every other.

#include <algorithm>
#include <cstdint>

#include "loading/LoopSoundFixture.h"

namespace zaffo {
namespace {

using Kind = PlayerManager::PlayerKind;

class LoopRealClipTest : public LoopSoundFixture {
 protected:
  /// The time from a seam to the next: less than the loader tells where sound outlasts picture.
  double round() const {
    const auto picture = item->asset()->tracksWithMediaType(AVMediaTypeVideo).front();
    const double copies = std::clamp(std::trunc(162.5 / (loopSeconds + 0.1)), 25.0, 50.0) + 1;
    return CMTimeGetSeconds(picture->timeRange.duration) / copies;
  }
  /// The brightness of the picture that is on screen, row by row.
  std::vector<uint8_t> brightness() const {
    const auto now = layerPicture();
    if (!now || !now->buffer) return {};
    const auto& plane = now->buffer->planes[0];
    std::vector<uint8_t> all;
    for (int y = 0; y < now->buffer->cropHeight; ++y) {
      const auto* row = plane.data + (y + now->buffer->cropTop) * plane.stride;
      const auto* begin = row + now->buffer->cropLeft;
      all.insert(all.end(), begin, begin + now->buffer->cropWidth);
    }
    return all;
  }
  void playTo(double position) {
    while (seconds() < position)
      time.advance(std::max<int64_t>(1, std::llround((position - seconds()) * 1e9)));
  }
};

class RealSoundTest : public LoopRealClipTest, public testing::WithParamInterface<const char*> {};

TEST_P(RealSoundTest, IsTheSameInEveryRound) {
  const auto path = test::realClip(GetParam());
  if (!path) GTEST_SKIP() << "there is no " << GetParam();
  ASSERT_TRUE(loadFile(*path));
  // Copies on the same track, that lie on whole frames of the output.
  const auto apart = frameAt(2 * round());
  ASSERT_NEAR(static_cast<double>(apart), 2 * round() * kRate, 1e-3);
  const auto heard = recordItem(4.1 * round());
  const auto from = frameAt(round() + kTrim), to = frameAt(2 * round());
  ASSERT_GE(heard.size(), to + apart);
  float loudest = 0;
  for (auto i = from; i < to; ++i) {
    ASSERT_NEAR(heard[i], heard[i + apart], 1e-6) << "at " << static_cast<double>(i) / kRate;
    loudest = std::max(loudest, std::abs(heard[i]));
  }
  EXPECT_GT(loudest, 0.001f);
}

INSTANTIATE_TEST_SUITE_P(Clips, RealSoundTest,
                         testing::Values("bt601.mp4", "friday.mp4", "sample_av1.mp4",
                                         "sample_portrait.mp4"),
                         [](const auto& tested) {
                           const std::string name = tested.param;
                           return name.substr(0, name.find('.'));
                         });

class RealPictureTest : public LoopRealClipTest,
                        public testing::WithParamInterface<std::tuple<const char*, Kind>> {};

TEST_P(RealPictureTest, IsTheSameInEveryRound) {
  const auto& [name, kind] = GetParam();
  const auto path = test::realClip(name);
  if (!path) GTEST_SKIP() << "there is no " << name;
  ASSERT_TRUE(loadFile(*path));
  ASSERT_TRUE(lend(kind));
  ASSERT_TRUE(start());
  std::vector<std::vector<uint8_t>> first;
  for (int copy = 0; copy < 3; ++copy) {
    for (int i = 0; i < 8; ++i) {
      const double into = (i + 0.47) / 8 * round();
      playTo(copy * round() + into);
      auto now = brightness();
      ASSERT_FALSE(now.empty()) << "at " << seconds();
      if (copy == 0)
        first.push_back(std::move(now));
      else
        EXPECT_TRUE(now == first[static_cast<std::size_t>(i)]) << "at " << seconds();
    }
  }
  EXPECT_FALSE(first.front() == first.back()) << "a moving picture";
}

INSTANTIATE_TEST_SUITE_P(
    Clips, RealPictureTest,
    testing::Combine(testing::Values("bt601.mp4", "friday.mp4", "flower.mp4", "h265_bframes.mp4",
                                     "sample_av1.mp4", "sample_fragmented.mp4", "bear-vp9.webm",
                                     "iibbibb_editlist_videoonly.mp4", "sample_portrait.mp4"),
                     testing::Values(Kind::Native, Kind::Fast)),
    [](const auto& tested) {
      const std::string name = std::get<const char*>(tested.param);
      std::string word = name.substr(0, name.find('.'));
      std::ranges::replace(word, '-', '_');
      return word + (std::get<Kind>(tested.param) == Kind::Fast ? "_fast" : "_native");
    });

}  // namespace
}  // namespace zaffo
