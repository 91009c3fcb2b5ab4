// SPDX-License-Identifier: Apache-2.0
#include <atomic>

#include "WindowTestSupport.h"
#include "platform/RecentTimes.h"
#include "platform/TimeSource.h"
#include "platform/window/TreeWindow.h"

namespace zaffo::window {
namespace {

constexpr int64_t kMillisecond = 1'000'000;

/// Time that only drawing moves on, on the thread that draws.
class DrawnTime final : public TimeSource {
 public:
  DrawnTime() { replace(this); }
  ~DrawnTime() override {
    dispatch_wait_until_idle();
    replace(nullptr);
  }
  [[nodiscard]] int64_t nanoseconds() const override { return now_; }
  void setAlarm(int64_t, std::function<void()>) override {}
  void pass(int64_t span) { now_ += span; }

 private:
  std::atomic<int64_t> now_{1000 * kMillisecond};
};

/// Draws in 3 ms and waits for the display for 16 ms.
class SlowCanvas final : public Canvas {
 public:
  explicit SlowCanvas(DrawnTime& time) : time_(time) {}
  void draw(const DisplayList&) override { time_.pass(3 * kMillisecond); }
  void show() override { time_.pass(16 * kMillisecond); }

 private:
  DrawnTime& time_;
};

TEST(DrawTimes, AreThoseOfDrawingWithoutTheWaitForTheDisplay) {
  DrawnTime time;
  auto thread = std::make_unique<RenderThread>();
  ASSERT_EQ(thread->start([&] { return std::make_unique<SlowCanvas>(time); }), nullptr);
  Window::Options options;
  options.size = {8, 8};
  const auto window =
      TreeWindow::create(std::make_unique<OffscreenScreen>(options), std::move(thread));
  EXPECT_EQ(recentTimes(TimedWork::Drawing), RecentTimes());
  ASSERT_TRUE(waitUntil([&] { return window->presentedPictures() == 1; }));
  EXPECT_EQ(recentTimes(TimedWork::Drawing), (RecentTimes{1, 3 * kMillisecond, 3 * kMillisecond}));
  time.pass(1000 * kMillisecond);
  EXPECT_EQ(recentTimes(TimedWork::Drawing), RecentTimes()) << "that is long ago";
}

}  // namespace
}  // namespace zaffo::window
