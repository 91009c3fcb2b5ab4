// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/DecoderThreads.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

TEST(DecoderThreads, AreAsManyAsSizeAndRateNeedAndNoMore) {
  const struct {
    DecoderLoad load;
    unsigned cores;
    int threads;
  } table[] = {
      {{320, 240, 30}, 8, 1},    {{1280, 720, 30}, 8, 1},     {{720, 1280, 60}, 8, 1},
      {{1280, 720, 120}, 8, 2},  {{1280, 720, 240}, 8, 4},    {{1920, 1080, 24}, 8, 1},
      {{1920, 1080, 30}, 8, 1},  {{1920, 1088, 30}, 8, 1},    {{1080, 1920, 30}, 8, 1},
      {{1920, 1080, 50}, 8, 2},  {{1920, 1080, 60}, 8, 2},    {{1080, 1920, 60}, 8, 2},
      {{1920, 1080, 120}, 8, 4}, {{2560, 1440, 30}, 8, 2},    {{2560, 1440, 60}, 8, 4},
      {{3840, 2160, 24}, 8, 3},  {{3840, 2160, 30}, 8, 4},    {{3840, 2160, 60}, 8, 4},
      {{8192, 4320, 30}, 16, 4}, {{3840, 2160, 30}, 3, 3},    {{3840, 2160, 30}, 2, 2},
      {{3840, 2160, 60}, 1, 1},  {{1920, 1080, 60}, 1, 1},    {{1920, 1080, 60}, 0, 1},
      {{0, 0, 30}, 8, 1},        {{16384, 4096, 1000}, 8, 4},
  };
  for (const auto& [load, cores, threads] : table) {
    EXPECT_EQ(decoderThreads(load, cores), threads)
        << load.width << "x" << load.height << " at " << load.framesPerSecond << " on " << cores;
  }
}

TEST(DecoderThreads, ARateThatIsNotKnownIsTakenForThirty) {
  for (const double rate : {0.0, -1.0}) {
    EXPECT_EQ(decoderThreads({1920, 1080, rate}, 8), 1);
    EXPECT_EQ(decoderThreads({3840, 2160, rate}, 8), 4);
  }
}

}  // namespace
}  // namespace zaffo::media
