// SPDX-License-Identifier: Apache-2.0
#include "zaffo.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "doubles/ManualTime.h"
#include "feed/TemporaryFolder.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/Trace.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

/// A program in C, as far as C++ can be one: it knows nothing but zaffo.h.
class ZaffoTest : public testing::Test {
 protected:
  ZaffoTest() {
    zaffo_set_trace([](const char*, void*) {}, nullptr);
  }
  ~ZaffoTest() override {
    zaffo_request_release(request_);
    zaffo_output_release(output_);
    zaffo_player_set_rate(player_, 0);
    zaffo_player_release(player_);
    zaffo_pool_release(pool_);
  }

  void play(const std::string& address, int loop = ZAFFO_LOOP_NONE) {
    request_ = zaffo_play(pool_, address.c_str(), loop, &ZaffoTest::answered, this);
    ASSERT_TRUE(request_);
  }
  void playClip(const char* name, int loop = ZAFFO_LOOP_NONE) {
    play(test::clip(name), loop);
    time_.settle();
    ASSERT_TRUE(player_) << error_;
  }
  static void answered(zaffo_player* player, const char* error, void* user) {
    auto* const self = static_cast<ZaffoTest*>(user);
    ++self->answers_;
    self->player_ = player;
    self->error_ = error ? error : "";
    if (self->onAnswer_) self->onAnswer_();
  }
  void attach(std::function<void()> changed) {
    changed_ = std::move(changed);
    output_ = zaffo_output_attach(
        player_,
        [](void* user) {
          auto* const self = static_cast<ZaffoTest*>(user);
          ++self->calls_;
          self->changed_();
        },
        this);
    ASSERT_TRUE(output_);
  }
  void attachAndDraw() {
    attach([this] { drawn_.push_back(numberOfPicture()); });
  }
  /// Of the picture that is due, read from its pixels at twice its size.
  int numberOfPicture() {
    zaffo_picture* const picture = zaffo_output_picture(output_);
    if (!picture) return -2;
    const int width = 2 * zaffo_picture_width(picture), height = 2 * zaffo_picture_height(picture);
    const int stride = 4 * width + 12;
    std::vector<uint8_t> pixels(static_cast<std::size_t>(stride) * height);
    EXPECT_TRUE(zaffo_picture_convert(picture, pixels.data(), width, height, stride));
    zaffo_picture_release(picture);
    return test::readFrameNumber(width, height,
                                 [&](int x, int y) -> double {
                                   return pixels[std::size_t(y) * stride + std::size_t{4} * x + 1];
                                 })
        .value_or(-1);
  }
  [[nodiscard]] std::string description() const {
    char* const text = zaffo_pool_describe(pool_);
    std::string copy(text);
    zaffo_text_release(text);
    return copy;
  }

  ManualTime time_;
  zaffo_pool* pool_ = zaffo_pool_create(0, 0);
  zaffo_request* request_ = nullptr;
  zaffo_player* player_ = nullptr;
  zaffo_output* output_ = nullptr;
  std::string error_;
  int answers_ = 0, calls_ = 0;
  std::function<void()> onAnswer_, changed_;
  std::vector<int> drawn_;
};

TEST_F(ZaffoTest, AClipPlaysAndEachPictureIsTold) {
  playClip("video_only.mp4");
  EXPECT_EQ(zaffo_player_rate(player_), 1);
  attachAndDraw();
  time_.advance(kNanosecondsPerSecond / 10 + kNanosecondsPerMillisecond);
  EXPECT_EQ(drawn_, (std::vector{0, 1, 2, 3}));
  EXPECT_NEAR(zaffo_player_time(player_), 0.101, 0.0001);
  EXPECT_NEAR(zaffo_player_duration(player_), 2, 0.001);
}

TEST_F(ZaffoTest, AFileUrlIsAnAddressToo) {
  play("file://" + test::clip("video_only.mp4"));
  time_.settle();
  EXPECT_TRUE(player_) << error_;
}

TEST_F(ZaffoTest, AnEndlessClipGoesOn) {
  playClip("video_only.mp4", ZAFFO_LOOP_ENDLESS);
  EXPECT_GT(zaffo_player_duration(player_), 60);
  time_.advance(5 * kNanosecondsPerSecond);
  EXPECT_NEAR(zaffo_player_time(player_), 5, 0.001);
}

TEST_F(ZaffoTest, AFastPlayerShowsTheSamePictures) {
  zaffo_pool_set_fast(pool_, true);
  playClip("video_only.mp4");
  attachAndDraw();
  time_.advance(kNanosecondsPerSecond / 10 + kNanosecondsPerMillisecond);
  EXPECT_EQ(drawn_, (std::vector{0, 1, 2, 3}));
}

TEST_F(ZaffoTest, ASeekShowsTheExactPicture) {
  playClip("video_only.mp4");
  zaffo_player_set_rate(player_, 0);
  attachAndDraw();
  time_.settle();
  zaffo_player_seek(player_, 40.5 / 30);
  time_.settle();
  EXPECT_EQ(drawn_, (std::vector{0, 40}));
  zaffo_player_seek(player_, -1);
  zaffo_player_seek(player_, std::numeric_limits<double>::quiet_NaN());
  zaffo_player_seek(player_, std::numeric_limits<double>::infinity());
  time_.settle();
  EXPECT_NEAR(zaffo_player_time(player_), 40.5 / 30, 0.0001);
}

TEST_F(ZaffoTest, VolumeAndRateAreKept) {
  playClip("video_only.mp4");
  zaffo_player_set_volume(player_, 0.25f);
  zaffo_player_set_rate(player_, 0.5f);
  EXPECT_EQ(zaffo_player_volume(player_), 0.25f);
  EXPECT_EQ(zaffo_player_rate(player_), 0.5f);
}

TEST_F(ZaffoTest, PicturesStandUpright) {
  playClip("rotated_90.mp4");
  attach([] {});
  time_.settle();
  zaffo_picture* const picture = zaffo_output_picture(output_);
  EXPECT_EQ(zaffo_picture_width(picture), 256);
  EXPECT_EQ(zaffo_picture_height(picture), 144);
  std::array<uint8_t, 4> pixel{};
  EXPECT_FALSE(zaffo_picture_convert(picture, pixel.data(), 0, 1, 4));
  EXPECT_FALSE(zaffo_picture_convert(picture, nullptr, 1, 1, 4));
  EXPECT_TRUE(zaffo_picture_convert(picture, pixel.data(), 1, 1, 4));
  EXPECT_EQ(pixel[3], 255);
  zaffo_picture_release(picture);
}

TEST_F(ZaffoTest, WhatIsWrongWithAFileIsTold) {
  play("/no such folder/missing.mp4");
  EXPECT_EQ(answers_, 0);
  time_.settle();
  EXPECT_EQ(answers_, 1);
  EXPECT_FALSE(player_);
  EXPECT_NE(error_.find("missing.mp4"), std::string::npos) << error_;
}

TEST_F(ZaffoTest, WhatIsNoAddressIsRefused) {
  play("gopher://host/clip.mp4");
  EXPECT_EQ(answers_, 0) << "not inside the call";
  time_.settle();
  EXPECT_EQ(error_, "This is no address of a clip: gopher://host/clip.mp4");
}

TEST_F(ZaffoTest, AReleasedRequestIsNeverAnswered) {
  for (const std::string& address : {test::clip("video_only.mp4"), std::string("gopher://host/")}) {
    play(address);
    zaffo_request_release(request_);
    request_ = nullptr;
    time_.settle();
  }
  EXPECT_EQ(answers_, 0);
  EXPECT_EQ(description(), "");
}

TEST_F(ZaffoTest, NothingIsAnsweredWhenThePoolIsGone) {
  play("gopher://host/");
  zaffo_request_release(request_);
  play(test::clip("video_only.mp4"));
  zaffo_request* const second = zaffo_play(pool_, "gopher://", ZAFFO_LOOP_NONE, &answered, this);
  zaffo_pool_release(pool_);
  pool_ = nullptr;
  time_.settle();
  EXPECT_EQ(answers_, 0);
  zaffo_request_release(second);
}

TEST_F(ZaffoTest, AClipThatThePoolHoldsPlaysInsideTheCall) {
  playClip("video_only.mp4");
  zaffo_player_set_rate(player_, 0);
  zaffo_player_release(player_);
  player_ = nullptr;
  zaffo_request_release(request_);
  EXPECT_NE(description().find("state: Loaded, activeUses: 0"), std::string::npos);
  // Which may let go of the pool there.
  onAnswer_ = [this] {
    zaffo_pool_release(pool_);
    pool_ = nullptr;
  };
  play(test::clip("video_only.mp4"));
  EXPECT_EQ(answers_, 2);
  EXPECT_TRUE(player_);
}

TEST_F(ZaffoTest, AllMayBeReleasedInsideACallback) {
  onAnswer_ = [this] {
    zaffo_request_release(request_);
    request_ = nullptr;
  };
  playClip("video_only.mp4");
  attach([this] {
    zaffo_player_set_rate(player_, 0);
    zaffo_player_release(player_);
    player_ = nullptr;
    zaffo_output_release(output_);
    output_ = nullptr;
    zaffo_pool_release(pool_);
    pool_ = nullptr;
  });
  time_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(calls_, 1);
}

TEST_F(ZaffoTest, AReleasedOutputOrPlayerTellsNothing) {
  playClip("video_only.mp4");
  attachAndDraw();
  zaffo_output_release(output_);
  output_ = nullptr;
  time_.advance(kNanosecondsPerSecond / 10);
  EXPECT_EQ(calls_, 0);
  attachAndDraw();
  zaffo_player_release(player_);
  player_ = nullptr;
  time_.advance(kNanosecondsPerSecond / 10);
  EXPECT_EQ(calls_, 0);
  EXPECT_FALSE(zaffo_output_picture(output_));
}

TEST_F(ZaffoTest, APoolKeepsToItsBounds) {
  zaffo_pool_release(pool_);
  pool_ = zaffo_pool_create(2, 1);
  playClip("video_only.mp4");
  zaffo_request* const refused =
      zaffo_play(pool_, test::clip("portrait.mp4").c_str(), ZAFFO_LOOP_NONE, &answered, this);
  zaffo_player* const first = player_;
  time_.settle();
  EXPECT_EQ(error_, "No player available for this video");
  zaffo_request_release(refused);
  zaffo_pool_set_busy(pool_, true);
  zaffo_request* const second =
      zaffo_play(pool_, test::clip("portrait.mp4").c_str(), ZAFFO_LOOP_NONE, &answered, this);
  time_.settle();
  EXPECT_TRUE(player_) << error_;
  zaffo_request_release(second);
  zaffo_player_release(first);
}

TEST_F(ZaffoTest, WhatIsNotThereIsTakenAndGivesNothing) {
  EXPECT_FALSE(zaffo_play(nullptr, "a", ZAFFO_LOOP_NONE, &answered, this));
  EXPECT_FALSE(zaffo_play(pool_, nullptr, ZAFFO_LOOP_NONE, &answered, this));
  EXPECT_FALSE(zaffo_play(pool_, "a", ZAFFO_LOOP_NONE, nullptr, this));
  EXPECT_FALSE(zaffo_play(pool_, "a", 2, &answered, this));
  EXPECT_FALSE(zaffo_output_attach(
      nullptr, [](void*) {}, nullptr));
  EXPECT_FALSE(zaffo_output_picture(nullptr));
  EXPECT_FALSE(zaffo_pool_describe(nullptr));
  EXPECT_EQ(zaffo_picture_width(nullptr) + zaffo_picture_height(nullptr), 0);
  EXPECT_FALSE(zaffo_picture_convert(nullptr, nullptr, 1, 1, 4));
  EXPECT_EQ(zaffo_player_rate(nullptr) + zaffo_player_volume(nullptr), 0);
  EXPECT_EQ(zaffo_player_time(nullptr) + zaffo_player_duration(nullptr), 0);
  zaffo_player_set_rate(nullptr, 1);
  zaffo_player_set_volume(nullptr, 1);
  zaffo_player_seek(nullptr, 1);
  zaffo_pool_set_busy(nullptr, true);
  zaffo_pool_set_fast(nullptr, true);
  zaffo_pool_release(nullptr);
  zaffo_request_release(nullptr);
  zaffo_player_release(nullptr);
  zaffo_output_release(nullptr);
  zaffo_picture_release(nullptr);
  zaffo_text_release(nullptr);
}

TEST_F(ZaffoTest, WhatIsThrownInABlockStaysWithin) {
  dispatch_async(dispatch_get_main_queue(), [] { throw std::runtime_error("of C++"); });
  EXPECT_EQ(zaffo_main_run(), -1);
  int ran = 0;
  dispatch_async(dispatch_get_main_queue(), [&] { ++ran; });
  EXPECT_EQ(zaffo_main_run(), 1);
  EXPECT_EQ(ran, 1);
}

TEST_F(ZaffoTest, TheLinesOfPlayersGoToTheProgram) {
  std::string text;
  zaffo_set_trace([](const char* line, void* user) { *static_cast<std::string*>(user) += line; },
                  &text);
  trace("a line");
  EXPECT_EQ(text, "a line");
  zaffo_set_trace(nullptr, nullptr);
  testing::internal::CaptureStdout();
  trace("another");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "another\n");
  EXPECT_EQ(text, "a line");
}

TEST_F(ZaffoTest, FieldsAreForAddressesOfTheNetwork) {
  EXPECT_TRUE(zaffo_set_request_field("https://example.org/a/", "Cookie", "id=1"));
  EXPECT_FALSE(zaffo_set_request_field("https://example.org/a/", "Cookie", "id\r\nOther: 1"));
  EXPECT_FALSE(zaffo_set_request_field("file:///a", "Cookie", "id=1"));
  EXPECT_FALSE(zaffo_set_request_field("no address", "Cookie", "id=1"));
  EXPECT_FALSE(zaffo_set_request_field(nullptr, "Cookie", "id=1"));
  EXPECT_TRUE(zaffo_set_request_field("https://example.org/a/", nullptr, nullptr));
}

TEST_F(ZaffoTest, ACacheFolderIsMade) {
  const feed::TemporaryFolder folder;
  zaffo_set_cache_folder(folder.file("clips").c_str(), 1'000'000);
  dispatch_wait_until_idle();
  EXPECT_TRUE(std::filesystem::is_directory(folder.file("clips")));
  zaffo_set_cache_folder(nullptr, 0);
}

TEST(ZaffoMainLoopTest, AThreadCanBecomeTheMainOne) {
  EXPECT_EQ(zaffo_c_version(), ZAFFO_C_VERSION);
  EXPECT_GE(zaffo_main_descriptor(), 0);
  std::thread([] {
    zaffo_main_adopt();
    EXPECT_TRUE(NSThread::isMainThread());
  }).join();
  EXPECT_FALSE(NSThread::isMainThread());
  zaffo_main_adopt();
}

}  // namespace
}  // namespace zaffo
