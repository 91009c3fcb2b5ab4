// SPDX-License-Identifier: Apache-2.0

// Sessions over real clips that are let go of, in every state.

#include <functional>
#include <memory>

#include "doubles/ProcessCounts.h"
#include "fast/RealMediaTest.h"

namespace zaffo {
namespace {

using testing::IsEmpty;

constexpr int64_t kFrame = kNanosecondsPerSecond / 30;

struct State {
  const char* name;
  const char* clip;
  std::function<void(RealMediaTest& test)> enter;
};

class ReleasedInAnyStateTest : public RealMediaTest, public testing::WithParamInterface<State> {};

TEST_P(ReleasedInAnyStateTest, LeavesNoCallbackThreadDescriptorOrMemoryBehind) {
  ASSERT_EQ(start(test::clip("h264_30.mp4")), nullptr);  // whatever is made once is there
  session->setRate(1);
  time.advance(10 * kFrame);
  session.reset();
  item.reset();
  time.advance(20 * kNanosecondsPerSecond);
  const size_t threads = threadCountBesideQueues(), descriptors = descriptorCount();
  for (int round = 0; round < 2; ++round) {
    item = itemAt(test::clip(GetParam().clip));
    session = PlaybackSession::create(item);
    GetParam().enter(*this);
    const std::weak_ptr<PlaybackSession> weakSession = session;
    const std::weak_ptr<AVSampleBufferDisplayLayer> layer = session->displayLayer();
    const std::weak_ptr<AVPlayerItem> weakItem = item;
    listen();
    session.reset();
    item.reset();
    ends.clear();
    time.advance(20 * kNanosecondsPerSecond);
    EXPECT_TRUE(weakSession.expired());
    EXPECT_TRUE(layer.expired());
    EXPECT_TRUE(weakItem.expired());
    EXPECT_THAT(ends, IsEmpty());
    EXPECT_FALSE(time.hasTimer());
    EXPECT_LE(countOfThreadsThatStay(threadCountBesideQueues, threads), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
  }
}

void started(RealMediaTest& test) {
  test.session->start([](const NSErrorPtr&) {});
}
void settled(RealMediaTest& test, int64_t nanoseconds = 0) {
  started(test);
  test.time.advance(nanoseconds);
}
void playing(RealMediaTest& test, int64_t nanoseconds) {
  settled(test);
  test.session->setRate(1);
  test.time.advance(nanoseconds);
}

INSTANTIATE_TEST_SUITE_P(
    States, ReleasedInAnyStateTest,
    testing::Values(State{"Created", "h264_30.mp4", [](RealMediaTest&) {}},
                    State{"JustStarted", "h264_30.mp4", [](RealMediaTest& test) { started(test); }},
                    State{"Paused", "h264_30.mp4",
                          [](RealMediaTest& test) { settled(test, kNanosecondsPerSecond); }},
                    State{"Playing", "h264_30.mp4",
                          [](RealMediaTest& test) { playing(test, 10 * kFrame); }},
                    State{"Seeking", "h264_30.mp4",
                          [](RealMediaTest& test) {
                            playing(test, 10 * kFrame);
                            test.session->seek(CMTimeMake(70, 30), [&test](const NSErrorPtr&) {
                              test.ends.push_back({"seek", 0});
                            });
                          }},
                    State{"Draining", "video_only.mp4",
                          [](RealMediaTest& test) { playing(test, kNanosecondsPerSecond); }},
                    State{"Ended", "video_only.mp4",
                          [](RealMediaTest& test) { playing(test, 5 * kNanosecondsPerSecond); }},
                    State{"Stopped", "h264_30.mp4",
                          [](RealMediaTest& test) {
                            playing(test, 10 * kFrame);
                            test.session->stop();
                            test.time.settle();
                          }},
                    State{"Stopping", "h264_30.mp4",
                          [](RealMediaTest& test) {
                            playing(test, 10 * kFrame);
                            test.session->stop();
                          }},
                    State{"Failed", "no_key_frame.mp4",
                          [](RealMediaTest& test) { playing(test, kNanosecondsPerSecond); }},
                    State{"WithoutAPicture", "audio_only.m4a",
                          [](RealMediaTest& test) { playing(test, kNanosecondsPerSecond); }}),
    [](const auto& state) { return state.param.name; });

}  // namespace
}  // namespace zaffo
