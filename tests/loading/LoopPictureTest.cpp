// SPDX-License-Identifier: Apache-2.0

// What is on screen while a loop plays over ten seams.

#include <cmath>
#include <ostream>

#include "loading/LoopFixture.h"

namespace zaffo {
namespace {

using Kind = PlayerManager::PlayerKind;

constexpr int kSeams = 10;

/// A clip, and when its frames are due.
struct Clip {
  const char* name;
  double rate;  // frames a second, on average
  int frames;
  bool varies = false;   // frame n is due (n mod 3) * 0.01 s later
  double matroska = -1;  // where the first frame begins in a container of whole milliseconds
  int first = 0;         // the number of its first frame
  double round = 0;      // seconds to the next copy when the loader tells of more

  [[nodiscard]] double due(int frame) const {
    if (matroska >= 0) return std::round((frame / rate + matroska) * 1000) / 1000;
    return frame / rate + (varies ? frame % 3 * 0.01 : 0);
  }
  [[nodiscard]] int frameAt(double seconds) const {
    int frame = static_cast<int>(seconds * rate);
    while (frame > 0 && due(frame) > seconds) --frame;
    while (frame + 1 < frames && due(frame + 1) <= seconds) ++frame;
    return frame;
  }
  friend std::ostream& operator<<(std::ostream& out, const Clip& clip) { return out << clip.name; }
};

class LoopPictureTest : public LoopFixture,
                        public testing::WithParamInterface<std::tuple<Clip, Kind>> {
 protected:
  const Clip& clip() const { return std::get<Clip>(GetParam()); }

  /// The frame that is due now; nothing within a hair of the change to another.
  std::optional<int> due() const {
    constexpr double kHair = 1e-4;
    const double at = seconds();
    const auto frameAt = [&](double moment) {
      return clip().frameAt(std::fmod(moment, loopSeconds) + kTrim);
    };
    const int frame = frameAt(at);
    if (frameAt(at - kHair) != frame || frameAt(at + kHair) != frame) return std::nullopt;
    return frame;
  }
};

TEST_P(LoopPictureTest, ShowsEveryFrameForItsTimeOverTenSeams) {
  ASSERT_TRUE(load(clip().name));
  ASSERT_TRUE(lend(std::get<Kind>(GetParam())));
  if (clip().round > 0) loopSeconds = clip().round;
  ASSERT_TRUE(start());
  const auto step = static_cast<int64_t>(1e9 / clip().rate / 4.1);  // never stays on a change
  const double first = seconds();
  const double end = (kSeams + 0.5) * loopSeconds;
  const auto begin = TimeSource::now();
  int changes = 0, looks = 0;
  std::optional<int> last;
  while (seconds() < end) {
    if (const auto frame = due()) {
      const auto onScreen = shown();
      ASSERT_EQ(onScreen, *frame + clip().first) << "at " << seconds() << " s";
      if (onScreen != last) ++changes;
      last = onScreen;
      ++looks;
    }
    time.advance(step);
    // Time goes on through every seam.
    ASSERT_NEAR(seconds() - first, static_cast<double>(TimeSource::now() - begin) / 1e9, 2e-6);
  }
  // Hardly a look fell on a change, and every frame was seen each time.
  const double framesPassed = end * clip().rate;
  EXPECT_GE(looks, 4 * framesPassed);
  EXPECT_GE(changes, framesPassed - 1);
}

INSTANTIATE_TEST_SUITE_P(
    Clips, LoopPictureTest,
    testing::Combine(
        testing::Values(Clip{"h264_24.mp4", 24, 48}, Clip{"h264_25.mp4", 25, 50},
                        Clip{"h264_ntsc.mp4", 30000 / 1001.0, 60}, Clip{"video_only.mp4", 30, 60},
                        Clip{"h264_50.mp4", 50, 100}, Clip{"h264_60.mp4", 60, 120},
                        Clip{"vfr.mp4", 30, 60, true}, Clip{"edit_list.mp4", 25, 10, false, -1, 40},
                        Clip{"h264.mkv", 30, 60, false, 0.023}, Clip{"hevc.mp4", 30, 60},
                        Clip{"vp9_opus.webm", 30, 60, false, 0.007}, Clip{"open_gop.mp4", 30, 60},
                        Clip{"long_gop.mp4", 30, 90}, Clip{"loop_600.mp4", 30, 30},
                        Clip{"loop_1000.mp4", 25, 25}, Clip{"loop_1_s.mp4", 25, 25},
                        Clip{"portrait.mp4", 30, 90}, Clip{"loop_6.5_s.mp4", 10, 65},
                        Clip{"loop_10_s.mp4", 10, 100}, Clip{"loop_short_sound.mov", 30, 30},
                        Clip{"loop_long_sound.mov", 30, 30, false, -1, 0, 0.95},
                        Clip{"loop_much_sound.mov", 30, 30, false, -1, 0, 0.95},
                        Clip{"loop_scrap_of_sound.mov", 30, 30},
                        Clip{"loop_empty_sound.mov", 30, 30}),
        testing::Values(Kind::Native, Kind::Fast)),
    [](const auto& tested) {
      std::string name = std::get<Clip>(tested.param).name;
      for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      return name + (std::get<Kind>(tested.param) == Kind::Fast ? "_fast" : "_native");
    });

}  // namespace
}  // namespace zaffo
