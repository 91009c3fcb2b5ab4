// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/FramePool.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "doubles/MappedPages.h"
#include "platform/media/Decoding.h"
#include "platform/media/SpareMappings.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace zaffo::media {
namespace {

FramePtr frameFrom(FramePool& pool, int width = 640, int height = 360,
                   AVPixelFormat format = AV_PIX_FMT_YUV420P) {
  FramePtr frame(av_frame_alloc());
  frame->format = format;
  frame->width = width;
  frame->height = height;
  EXPECT_EQ(pool.allocate(*frame), 0);
  return frame;
}

std::vector<const uint8_t*> places(const std::vector<FramePtr>& frames) {
  std::vector<const uint8_t*> result;
  for (const FramePtr& frame : frames) result.push_back(frame->data[0]);
  return result;
}

/// How many are in use, or wait in their pool.
long mappedCount(const std::vector<const uint8_t*>& places) {
  SpareMappings::shared().clear();
  return std::ranges::count_if(places, [](const uint8_t* place) { return isMapped(place); });
}

class FramePoolTest : public testing::Test {
 protected:
  std::vector<FramePtr> take(int count) {
    std::vector<FramePtr> frames;
    for (int i = 0; i < count; ++i) frames.push_back(frameFrom(*pool_));
    return frames;
  }

  std::shared_ptr<FramePool> pool_ = FramePool::create();
};

TEST_F(FramePoolTest, EachPlaneHasItsPlaceAndIsAligned) {
  for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_YUV444P10LE,
                                     AV_PIX_FMT_GRAY8, AV_PIX_FMT_GBRP, AV_PIX_FMT_BGRA}) {
    const FramePtr frame = frameFrom(*pool_, 162, 130, format);
    const AVFrame& f = *frame;
    const std::ptrdiff_t lines[4] = {f.linesize[0], f.linesize[1], f.linesize[2], f.linesize[3]};
    std::size_t sizes[4] = {};
    ASSERT_GE(av_image_fill_plane_sizes(sizes, format, f.height, lines), 0);
    const uint8_t* end = f.buf[0]->data;
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(f.data[i] != nullptr, sizes[i] > 0) << format;
      if (!f.data[i]) continue;
      EXPECT_GE(f.data[i], end) << format;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(f.data[i]) % 64, 0U);
      EXPECT_EQ(f.linesize[i] % 64, 0);
      end = f.data[i] + sizes[i];
      std::fill_n(f.data[i], sizes[i], uint8_t{1});
    }
    EXPECT_LE(end + 64, f.buf[0]->data + f.buf[0]->size) << format;
  }
}

TEST_F(FramePoolTest, AFrameThatWasLetGoIsTheNextOne) {
  const uint8_t* place = nullptr;
  for (int i = 0; i < 5; ++i) {
    const FramePtr frame = frameFrom(*pool_);
    if (i > 0) {
      EXPECT_EQ(frame->data[0], place);
    }
    place = frame->data[0];
  }
}

TEST_F(FramePoolTest, NoMoreWaitThanABurstTakes) {
  auto frames = take(10);
  const auto all = places(frames);
  EXPECT_EQ(std::set(all.begin(), all.end()).size(), 10U);
  frames.clear();
  EXPECT_EQ(mappedCount(all), static_cast<long>(FramePool::kMostSpares));
}

TEST_F(FramePoolTest, FramesOfAnotherSizeDoNotWait) {
  auto frames = take(3);
  const auto small = places(frames);
  frames.resize(1);
  const FramePtr large = frameFrom(*pool_, 1280, 720);
  EXPECT_EQ(mappedCount(small), 1);
  frames.clear();
  EXPECT_EQ(mappedCount(small), 0);
}

TEST_F(FramePoolTest, NothingWaitsOnceItIsClosed) {
  auto frames = take(4);
  const auto all = places(frames);
  frames.resize(2);
  pool_->close();
  EXPECT_EQ(mappedCount(all), 2);
  pool_.reset();
  EXPECT_EQ(mappedCount(all), 2);
  frames.clear();
  EXPECT_EQ(mappedCount(all), 0);
}

TEST(FramePool, AFrameOutlivesItsDecoderAndTheRestOfItsMemoryDoesNot) {
  const char* const clips[] = {"h264_30.mp4", "hevc_10bit.mp4", "vp9_opus.webm", "h264_444.mp4"};
  for (const char* name : clips) {
    auto frames = decodeVideo(test::clip(name));  // whose decoder is gone by now
    ASSERT_GT(frames.size(), 10U) << name;
    const uint8_t* const kept = frames[5].buffer->planes[0].data;
    std::vector<const uint8_t*> others;
    for (const VideoFrame& frame : frames) others.push_back(frame.buffer->planes[0].data);
    std::erase(others, kept);
    std::swap(frames.front(), frames[5]);
    frames.resize(1);
    EXPECT_TRUE(isMapped(kept)) << name;
    EXPECT_EQ(mappedCount(others), 0) << name;
    frames.clear();
    EXPECT_EQ(mappedCount({kept}), 0) << name;
  }
}

}  // namespace
}  // namespace zaffo::media
