// SPDX-License-Identifier: Apache-2.0
#include "clip/PictureOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "clip/ClipVideo.h"
#include "clip/PlayVideo.h"
#include "doubles/ManualTime.h"
#include "doubles/ScriptedMutablePlayer.h"
#include "fast/QuietTrace.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/coremedia/PixelConversion.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

/// Pixels of BGRA, rows one after another.
struct Pixels {
  Pixels(int w, int h) : width(w), height(h), bytes(std::size_t{4} * w * h) {}
  [[nodiscard]] uint8_t* at(int x, int y) {
    return bytes.data() + std::size_t{4} * (std::size_t(y) * width + x);
  }
  int width, height;
  std::vector<uint8_t> bytes;
};

Pixels converted(const OutputPicture& picture, int width, int height) {
  Pixels pixels(width, height);
  EXPECT_TRUE(picture.convertTo(pixels.bytes.data(), width, height, std::ptrdiff_t{4} * width));
  return pixels;
}

Pixels converted(const OutputPicture& picture) {
  const CGSize size = picture.naturalSize();
  return converted(picture, static_cast<int>(size.width), static_cast<int>(size.height));
}

/// `pixels` turned clockwise by 90 degrees so many times.
Pixels turned(Pixels pixels, int quarterTurns) {
  for (; quarterTurns > 0; --quarterTurns) {
    Pixels next(pixels.height, pixels.width);
    for (int y = 0; y < next.height; ++y) {
      for (int x = 0; x < next.width; ++x) {
        std::copy_n(pixels.at(y, pixels.height - 1 - x), 4, next.at(x, y));
      }
    }
    pixels = std::move(next);
  }
  return pixels;
}

/// Of a picture that stands as it was coded.
std::optional<int> frameNumber(Pixels& pixels) {
  return test::readFrameNumber(pixels.width, pixels.height,
                               [&](int x, int y) -> double { return pixels.at(x, y)[1]; });
}

/// Clips in the pool's players, native or fast.
class PictureOutputTest : public testing::TestWithParam<bool> {
 protected:
  PictureOutputTest() { pool_->setUseFastPlayer(GetParam()); }

  /// Plays a clip once, into handle_.
  void play(const char* name) {
    zaffo::play(pool_,
                ClipVideo::create(NSURL::fileURLWithPath(test::clip(name)), ClipVideo::Loop::None),
                [this](const PlayerLoadResult& result) { handle_ = result.player(); });
    time_.settle();
    ASSERT_TRUE(handle_);
  }
  /// The first picture of a clip that is stopped.
  std::optional<OutputPicture> firstPicture(const char* name) {
    play(name);
    if (!handle_) return std::nullopt;
    handle_->setRate(0);
    attach([] {});
    time_.settle();
    return output_->picture();
  }
  void attach(std::function<void()> changed) {
    output_ = PictureOutput::attach(handle_, [this, changed = std::move(changed)] {
      EXPECT_TRUE(NSThread::isMainThread());
      ++calls_;
      changed();
    });
  }
  void attachAndDraw() {
    attach([this] { draw(); });
  }
  void draw() {
    const auto picture = output_->picture();
    drawn_.push_back(picture ? test::frameNumber(picture->buffer).value_or(-1) : -2);
  }

  const QuietTrace quiet_;
  ManualTime time_;
  std::shared_ptr<PlayerManager> pool_ = PlayerManager::create();
  std::shared_ptr<PlayerDecorator> handle_;
  std::shared_ptr<PictureOutput> output_;
  int calls_ = 0;
  std::vector<int> drawn_;  ///< numbers of pictures; -2 for none
};

INSTANTIATE_TEST_SUITE_P(Players, PictureOutputTest, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Fast" : "Native"; });

TEST_P(PictureOutputTest, EachPictureIsToldWhenItIsDue) {
  play("video_only.mp4");
  attachAndDraw();
  EXPECT_EQ(calls_, 0) << "not inside the call";
  time_.advance(kNanosecondsPerSecond + kNanosecondsPerSecond / 60);
  std::vector<int> all(31);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(drawn_, all);
}

TEST_P(PictureOutputTest, APictureThatIsNotTakenIsToldOnce) {
  play("video_only.mp4");
  attach([] {});
  time_.advance(kNanosecondsPerSecond / 2 + kNanosecondsPerSecond / 60);
  EXPECT_EQ(calls_, 1);
  draw();
  EXPECT_EQ(drawn_, (std::vector{15})) << "what is due by then";
  time_.advance(kNanosecondsPerSecond / 30);
  EXPECT_EQ(calls_, 2);
}

TEST_P(PictureOutputTest, NobodyIsCalledWhileThePictureStays) {
  play("video_only.mp4");
  handle_->setRate(0);
  attachAndDraw();
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(drawn_, (std::vector{0}));
  draw();
  handle_->outputView()->layer()->setNeedsDisplay();
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(calls_, 1);
  handle_->setCurrentTime(CMTimeMake(1, 1));
  time_.settle();
  EXPECT_EQ(drawn_, (std::vector{0, 0, 30})) << "a seek shows another one";
}

TEST_P(PictureOutputTest, ThatThereIsNoPictureAnyMoreIsTold) {
  play("video_only.mp4");
  handle_->setRate(0);
  attachAndDraw();
  time_.settle();
  std::dynamic_pointer_cast<MutablePlayer>(handle_->innerPlayer())->teardownPlayerItem();
  time_.settle();
  EXPECT_EQ(drawn_, (std::vector{0, -2}));
}

TEST_P(PictureOutputTest, ConvertsAsTheStandardsSay) {
  const auto picture = firstPicture("video_only.mp4");
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->naturalSize(), (CGSize{192, 108}));
  const Pixels drawn = converted(*picture);
  Pixels exact(192, 108);
  convertToBGRA(*picture->buffer, exact.bytes.data(), 4 * 192);
  int worst = 0;
  for (std::size_t i = 0; i < drawn.bytes.size(); ++i) {
    worst = std::max(worst, std::abs(drawn.bytes[i] - exact.bytes[i]));
  }
  EXPECT_LE(worst, 2);
}

TEST_P(PictureOutputTest, StretchesToTheSizeThatIsAskedFor) {
  play("video_only.mp4");
  attachAndDraw();
  time_.advance(kNanosecondsPerSecond / 2 + kNanosecondsPerSecond / 60);
  const auto picture = output_->picture();
  ASSERT_TRUE(picture);
  for (const auto& [width, height] : {std::pair{96, 54}, {400, 100}, {191, 107}}) {
    Pixels pixels = converted(*picture, width, height);
    EXPECT_EQ(frameNumber(pixels), 15) << width;
  }
}

TEST_P(PictureOutputTest, PicturesAreTurnedUpright) {
  const auto upright = firstPicture("portrait.mp4");
  ASSERT_TRUE(upright);
  const Pixels coded = converted(*upright);
  for (const int turns : {1, 2, 3}) {
    const auto picture = firstPicture(("rotated_" + std::to_string(90 * turns) + ".mp4").c_str());
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->quarterTurns, turns);
    const Pixels expected = turned(coded, turns);
    EXPECT_EQ(picture->naturalSize(), (CGSize{double(expected.width), double(expected.height)}));
    EXPECT_EQ(converted(*picture).bytes, expected.bytes) << turns;
  }
}

TEST_P(PictureOutputTest, PixelsThatAreNotSquareAreStretched) {
  const auto picture = firstPicture("anamorphic.mp4");
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->naturalSize(), (CGSize{256, 108}));
}

TEST_P(PictureOutputTest, APictureOutlivesItsPlayer) {
  const auto picture = firstPicture("video_only.mp4");
  ASSERT_TRUE(picture);
  const Pixels before = converted(*picture);
  output_ = nullptr;
  handle_ = nullptr;
  pool_ = nullptr;
  time_.settle();
  EXPECT_EQ(converted(*picture).bytes, before.bytes);
}

TEST_P(PictureOutputTest, NothingIsToldOnceItIsDetached) {
  play("video_only.mp4");
  const auto held = std::make_shared<int>(0);
  attach([this, held] { draw(); });
  time_.advance(kNanosecondsPerSecond / 2);
  ASSERT_GT(calls_, 10);
  const int calls = calls_;
  output_->detach();
  output_->detach();
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_FALSE(output_->isAttached());
  EXPECT_FALSE(output_->picture());
  time_.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(calls_, calls);
  EXPECT_FALSE(handle_->outputView()->superview());
}

TEST_P(PictureOutputTest, AnOutputThatGoesIsDetached) {
  play("video_only.mp4");
  attachAndDraw();
  output_ = nullptr;  // a call is on its way
  time_.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(calls_, 0);
  EXPECT_FALSE(handle_->outputView()->superview());
}

TEST_P(PictureOutputTest, TheHandleMayGoInsideTheCallback) {
  play("video_only.mp4");
  attach([this] {
    draw();
    if (drawn_.size() == 3) handle_ = nullptr;
  });
  time_.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(drawn_, (std::vector{0, 1, 2})) << "though the player goes on";
  EXPECT_FALSE(output_->isAttached());
  EXPECT_FALSE(output_->picture());
}

TEST_P(PictureOutputTest, AllMayGoInsideTheCallback) {
  play("video_only.mp4");
  const auto held = std::make_shared<int>(0);
  attach([this, held] {
    handle_->setRate(0);
    output_ = nullptr;
    handle_ = nullptr;
    pool_ = nullptr;
  });
  time_.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(calls_, 1);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_P(PictureOutputTest, AHandleThatIsGivenBackDetaches) {
  play("video_only.mp4");
  attachAndDraw();
  time_.advance(kNanosecondsPerSecond / 2);
  const int calls = calls_;
  handle_->releaseToManager();
  EXPECT_FALSE(output_->isAttached());
  time_.advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(calls_, calls);
  EXPECT_FALSE(handle_->outputView()->superview()) << "let go without being asked";
}

TEST_P(PictureOutputTest, APlayerThatIsGoneDetaches) {
  play("video_only.mp4");
  attachAndDraw();
  time_.settle();
  pool_->removeAllPlayers();
  time_.settle();
  EXPECT_FALSE(output_->isAttached());
  EXPECT_EQ(calls_, 1);
  const auto held = std::make_shared<int>(0);
  attach([held] {});
  EXPECT_FALSE(output_->isAttached()) << "there is nothing to attach to";
  EXPECT_EQ(held.use_count(), 1);
  handle_ = nullptr;
  attach([] {});
  EXPECT_FALSE(output_->picture());
}

TEST_P(PictureOutputTest, AnotherOutputOfThePlayerTakesItsPictures) {
  play("video_only.mp4");
  attachAndDraw();
  time_.settle();
  int others = 0;
  const auto other = PictureOutput::attach(handle_, [&] { ++others; });
  time_.settle();
  EXPECT_FALSE(output_->isAttached());
  EXPECT_FALSE(output_->picture());
  output_ = nullptr;
  EXPECT_TRUE(other->isAttached());
  EXPECT_EQ(others, 1);
  EXPECT_TRUE(other->picture());
}

/// A layer that has another picture every 40 ms and says so, but asks for no draw.
class PlanningLayer final : public CALayer {
 public:
  explicit PlanningLayer(int64_t start) : start_(start) {}

  std::optional<LayerPicture> picture(int64_t hostNanoseconds) override {
    const auto number = static_cast<std::size_t>((hostNanoseconds - start_) / kLasts);
    while (pictures_.size() <= number) pictures_.push_back(std::make_shared<CVPixelBuffer>());
    return LayerPicture{pictures_[number], CGRectZero, 5, true};
  }
  std::optional<int64_t> nextPictureTime() override {
    return start_ + ((TimeSource::now() - start_) / kLasts + 1) * kLasts;
  }

 private:
  static constexpr int64_t kLasts = 40 * kNanosecondsPerMillisecond;
  const int64_t start_;
  std::vector<CVPixelBufferPtr> pictures_;
};

TEST(PlannedPictureOutputTest, ComesForEachPictureByItself) {
  ManualTime time;
  const auto player = std::make_shared<ScriptedMutablePlayer>(
      "player", std::make_shared<std::vector<std::string>>());
  player->view = UIView::create();
  const auto between = CALayer::create();
  between->addSublayer(std::make_shared<PlanningLayer>(time.start()));
  player->view->layer()->addSublayer(between);
  const auto handle = std::make_shared<PlayerDecorator>(nullptr, player);
  std::vector<int64_t> calledAt;
  std::shared_ptr<PictureOutput> output;
  output = PictureOutput::attach(handle, [&] {
    calledAt.push_back(time.elapsed() / kNanosecondsPerMillisecond);
    const auto picture = output->picture();
    EXPECT_EQ(picture->quarterTurns, 1);
    EXPECT_TRUE(picture->mirrored);
  });
  time.advance(130 * kNanosecondsPerMillisecond);
  EXPECT_EQ(calledAt, (std::vector<int64_t>{0, 40, 80, 120}));
  output->detach();
  time.advance(130 * kNanosecondsPerMillisecond);
  EXPECT_EQ(calledAt.size(), 4u);
}

TEST(OutputPictureTest, IsMirroredFirstAndThenTurned) {
  std::array<uint8_t, 6> luma{16, 50, 84, 118, 152, 186};  // 3 by 2
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->format = CVPixelFormat::Gray8;
  buffer->width = buffer->cropWidth = 3;
  buffer->height = buffer->cropHeight = 2;
  buffer->planes[0] = {luma.data(), 3};
  const Pixels plain = converted({buffer, 0, false});
  Pixels mirrored(3, 2);
  for (int i = 0; i < 6; ++i) {
    Pixels source = plain;
    std::copy_n(source.at(2 - i % 3, i / 3), 4, mirrored.at(i % 3, i / 3));
  }
  EXPECT_NE(plain.bytes, mirrored.bytes);
  for (const int turns : {0, 1, 2, 3}) {
    EXPECT_EQ(converted({buffer, turns, false}).bytes, turned(plain, turns).bytes) << turns;
    EXPECT_EQ(converted({buffer, turns, true}).bytes, turned(mirrored, turns).bytes) << turns;
  }
}

TEST(OutputPictureTest, WithNothingToSeeNothingIsWritten) {
  std::array<uint8_t, 4> luma{}, target{1, 2, 3, 4};
  auto buffer = std::make_shared<CVPixelBuffer>();
  buffer->format = CVPixelFormat::Gray8;
  buffer->width = buffer->height = buffer->cropWidth = buffer->cropHeight = 2;
  buffer->planes[0] = {luma.data(), 2};
  const OutputPicture picture{buffer};
  EXPECT_FALSE(picture.convertTo(target.data(), 0, 1, 4));
  EXPECT_FALSE(picture.convertTo(target.data(), 1, -1, 4));
  buffer->cropLeft = 1;
  EXPECT_FALSE(picture.convertTo(target.data(), 1, 1, 4));
  EXPECT_EQ(target, (std::array<uint8_t, 4>{1, 2, 3, 4}));
  buffer->cropLeft = 0;
  EXPECT_TRUE(picture.convertTo(target.data(), 1, 1, 4));
}

}  // namespace
}  // namespace zaffo
