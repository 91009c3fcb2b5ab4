// SPDX-License-Identifier: Apache-2.0

// A program of GTK, in a real window on a display of its own.

#include <ZaffoGtk/zaffo-gtk-runtime.h>
#include <ZaffoGtk/zaffo-gtk.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/window/VirtualDisplay.h"

namespace zaffo {
namespace {

using test::clip;
using testing::HasSubstr;

constexpr int64_t kFrame = kNanosecondsPerSecond / 30;

/// What GTK drew.
struct Drawn {
  int width = 0, height = 0;
  std::vector<uint8_t> bgra;

  [[nodiscard]] const uint8_t* at(int x, int y) const {
    return &bgra[(static_cast<std::size_t>(y) * width + x) * 4];
  }
  /// Read from the whole of it.
  [[nodiscard]] int frameNumber() const {
    const auto brightness = [&](int x, int y) -> double { return at(x, y)[1]; };
    return test::readFrameNumber(width, height, brightness).value_or(-1);
  }
};

class GtkTest : public testing::Test {
 protected:
  void SetUp() override {
    // GTK keeps to the first display of the process.
    static const VirtualDisplay* const display = VirtualDisplay::start(640, 480).release();
    if (!display) GTEST_SKIP() << "Xvfb is not installed";
    setenv("GDK_BACKEND", "x11", 1);
    setenv("GSK_RENDERER", "cairo", 1);
    setenv("GTK_A11Y", "none", 1);
    zaffo_set_trace([](const char*, void*) {}, nullptr);
    ASSERT_TRUE(gtk_init_check());
    window_ = gtk_window_new();
    gtk_window_set_decorated(GTK_WINDOW(window_), FALSE);
    gtk_window_set_default_size(GTK_WINDOW(window_), 192, 108);
  }
  void TearDown() override {
    if (!window_) return;
    gtk_window_destroy(GTK_WINDOW(window_));
    settle();
    EXPECT_FALSE(zaffo_gtk_pool()) << "a paintable is left";
  }

  /// Runs what waits in GLib's loop until `condition` holds.
  static void runUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const guint tick = g_timeout_add(
        50, [](void*) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (!condition() && std::chrono::steady_clock::now() < end) {
      g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(tick);
    ASSERT_TRUE(condition());
  }
  void settle() {
    time_.settle();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }
  void advance(int64_t span) {
    time_.advance(span);
    settle();
  }

  /// Has the window laid out and drawn once more, as its frame clock does when something changed.
  void drawWindow() {
    GdkFrameClock* const clock = gtk_widget_get_frame_clock(window_);
    bool isDrawn = false;
    const auto painted = +[](GdkFrameClock*, bool* drawn) { *drawn = true; };
    const gulong id = g_signal_connect(clock, "after-paint", G_CALLBACK(painted), &isDrawn);
    gdk_frame_clock_request_phase(clock, GDK_FRAME_CLOCK_PHASE_PAINT);
    runUntil([&] { return isDrawn; });
    g_signal_handler_disconnect(clock, id);
  }

  /// A clip in the window, with its place in it and its first picture.
  ZaffoGtkVideo* show(const std::string& name, bool isLoop = false) {
    GtkWidget* const widget = zaffo_gtk_video_new(clip(name).c_str());
    ZaffoGtkVideo* const video = ZAFFO_GTK_VIDEO(widget);
    zaffo_gtk_paintable_set_loop(zaffo_gtk_video_get_paintable(video), isLoop ? TRUE : FALSE);
    gtk_window_set_child(GTK_WINDOW(window_), widget);
    gtk_window_present(GTK_WINDOW(window_));
    runUntil([&] { return gtk_widget_get_mapped(widget) && gtk_widget_get_width(widget) > 0; });
    settle();
    return video;
  }
  /// What the window's renderer makes of the widget.
  Drawn draw(ZaffoGtkVideo* video) {
    drawWindow();
    GtkSnapshot* const snapshot = gtk_snapshot_new();
    gtk_widget_snapshot_child(window_, GTK_WIDGET(video), snapshot);
    const std::unique_ptr<GskRenderNode, void (*)(GskRenderNode*)> node(
        gtk_snapshot_free_to_node(snapshot), &gsk_render_node_unref);
    if (!node) return {};
    graphene_rect_t whole;
    graphene_rect_init(&whole, 0, 0, static_cast<float>(gtk_widget_get_width(GTK_WIDGET(video))),
                       static_cast<float>(gtk_widget_get_height(GTK_WIDGET(video))));
    GskRenderer* const renderer = gtk_native_get_renderer(GTK_NATIVE(window_));
    return downloaded(gsk_renderer_render_texture(renderer, node.get(), &whole));
  }
  static Drawn downloaded(GdkTexture* texture) {
    Drawn drawn{gdk_texture_get_width(texture), gdk_texture_get_height(texture), {}};
    drawn.bgra.resize(static_cast<std::size_t>(drawn.width) * drawn.height * 4);
    gdk_texture_download(texture, drawn.bgra.data(), static_cast<std::size_t>(drawn.width) * 4);
    g_object_unref(texture);
    return drawn;
  }

  ManualTime time_;
  GtkWidget* window_ = nullptr;
};

ZaffoGtkPaintable* paintableOf(ZaffoGtkVideo* video) {
  return zaffo_gtk_video_get_paintable(video);
}

/// A handler of a signal, for as long as this lives.
class Connection {
 public:
  Connection(gpointer object, const char* signal, GCallback handler, gpointer user,
             GConnectFlags flags)
      : object_(G_OBJECT(object)),
        id_(g_signal_connect_data(object, signal, handler, user, nullptr, flags)) {
    g_object_add_weak_pointer(object_, reinterpret_cast<gpointer*>(&object_));
  }
  ~Connection() {
    if (object_) g_signal_handler_disconnect(object_, id_);
    g_clear_weak_pointer(&object_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

 private:
  GObject* object_;  // null once it is gone
  const gulong id_;
};

/// What the `failed` signals of a paintable told.
class Failures {
 public:
  explicit Failures(ZaffoGtkPaintable* paintable)
      : connection_(paintable, "failed", G_CALLBACK(&Failures::add), this, G_CONNECT_SWAPPED) {}
  [[nodiscard]] const std::vector<std::string>& texts() const { return texts_; }

 private:
  static void add(Failures* self, const char* text) { self->texts_.emplace_back(text); }
  std::vector<std::string> texts_;
  const Connection connection_;
};

/// How often a paintable said that it looks different.
class Changes {
 public:
  explicit Changes(ZaffoGtkPaintable* paintable)
      : connection_(paintable, "invalidate-contents", G_CALLBACK(&Changes::add), this,
                    G_CONNECT_SWAPPED) {}
  int take() { return std::exchange(count_, 0); }

 private:
  static void add(Changes* self) { ++self->count_; }
  int count_ = 0;
  const Connection connection_;
};

/// The players that the pool has, a line each.
std::string players() {
  char* const text = zaffo_pool_describe(zaffo_gtk_pool());
  std::string copy(text ? text : "no pool");
  zaffo_text_release(text);
  return copy;
}

TEST_F(GtkTest, AClipPlaysInAWindow) {
  ZaffoGtkVideo* const video = show("video_only.mp4");
  EXPECT_EQ(draw(video).frameNumber(), 0);
  for (const int frame : {1, 2, 10}) {
    zaffo_gtk_paintable_pause(paintableOf(video));
    zaffo_gtk_paintable_seek(paintableOf(video), 0);
    settle();
    zaffo_gtk_paintable_play(paintableOf(video));
    advance(frame * kFrame + kNanosecondsPerMillisecond);
    EXPECT_EQ(draw(video).frameNumber(), frame);
  }
}

TEST_F(GtkTest, EveryPictureIsDrawn) {
  ZaffoGtkVideo* const video = show("video_only.mp4");
  std::vector<int> numbers{draw(video).frameNumber()};
  for (int frame = 1; frame < 60; ++frame) {
    advance(kFrame + kNanosecondsPerMillisecond / 100);
    numbers.push_back(draw(video).frameNumber());
  }
  std::vector<int> all(60);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(numbers, all);
}

TEST_F(GtkTest, ALoopGoesOn) {
  ZaffoGtkVideo* const video = show("video_only.mp4", true);
  advance(5 * kNanosecondsPerSecond);
  EXPECT_NEAR(zaffo_gtk_paintable_get_position(paintableOf(video)), 5, 0.001);
  EXPECT_GT(zaffo_gtk_paintable_get_duration(paintableOf(video)), 60);
  // Two rounds of 1.9 s, and 0.05 s that each lacks in front.
  EXPECT_EQ(draw(video).frameNumber(), static_cast<int>((5 - 2 * 1.9 + 0.05) * 30));
}

TEST_F(GtkTest, TheLibraryRunsInTheLoopOfGLib) {
  GPollFD polled[64];
  int timeout = 0, entries = 0;
  ZaffoGtkPaintable* const first = zaffo_gtk_paintable_new(nullptr);
  ZaffoGtkPaintable* const second = zaffo_gtk_paintable_new(clip("video_only.mp4").c_str());
  entries = g_main_context_query(g_main_context_default(), G_MAXINT, &timeout, polled, 64);
  EXPECT_EQ(std::count_if(polled, polled + entries,
                          [](const GPollFD& p) { return p.fd == zaffo_main_descriptor(); }),
            1);
  runUntil([&] { return gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(second)) == 192; });
  EXPECT_EQ(gdk_paintable_get_intrinsic_height(GDK_PAINTABLE(second)), 108);
  g_object_unref(first);
  g_object_unref(second);
}

TEST_F(GtkTest, ThePictureKeepsItsProportions) {
  gtk_window_set_default_size(GTK_WINDOW(window_), 400, 108);
  ZaffoGtkVideo* const video = show("video_only.mp4");
  const Drawn drawn = draw(video);
  ASSERT_EQ(drawn.width, 400);
  ASSERT_EQ(drawn.height, 108);
  // 192 of its 400 columns, in the middle: the first block is white, the second black.
  EXPECT_EQ(drawn.at(100, 13)[3], 0) << "left of it nothing is drawn";
  EXPECT_GT(drawn.at(108, 13)[1], 200);
  EXPECT_LT(drawn.at(128, 13)[1], 50);
  EXPECT_EQ(drawn.at(300, 13)[3], 0) << "nor to its right";
}

TEST_F(GtkTest, PicturesStandUpright) {
  gtk_window_set_default_size(GTK_WINDOW(window_), 256, 144);
  ZaffoGtkVideo* const video = show("rotated_90.mp4");
  GdkPaintable* const paintable = GDK_PAINTABLE(paintableOf(video));
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(paintable), 256);
  EXPECT_EQ(gdk_paintable_get_intrinsic_height(paintable), 144);
  const Drawn drawn = draw(video);
  // The row of blocks is on the right, and begins at the top.
  EXPECT_GT(drawn.at(240, 6)[1], 200);
  EXPECT_LT(drawn.at(240, 18)[1], 50);
}

/// The texture that a paintable draws itself with at a size.
GdkTexture* textureAt(ZaffoGtkPaintable* paintable, double width, double height) {
  GtkSnapshot* const snapshot = gtk_snapshot_new();
  gdk_paintable_snapshot(GDK_PAINTABLE(paintable), snapshot, width, height);
  GskRenderNode* const node = gtk_snapshot_free_to_node(snapshot);
  if (!node) return nullptr;
  EXPECT_EQ(gsk_render_node_get_node_type(node), GSK_TEXTURE_NODE);
  GdkTexture* const texture = gsk_texture_node_get_texture(node);
  g_object_ref(texture);
  gsk_render_node_unref(node);
  return texture;
}

TEST_F(GtkTest, ATextureIsAsLargeAsItIsDrawnButNoLargerThanThePicture) {
  ZaffoGtkPaintable* const paintable = paintableOf(show("video_only.mp4"));
  const auto sizeAt = [&](double width, double height) {
    GdkTexture* const texture = textureAt(paintable, width, height);
    const std::pair size(gdk_texture_get_width(texture), gdk_texture_get_height(texture));
    g_object_unref(texture);
    return size;
  };
  EXPECT_EQ(sizeAt(96, 54), std::pair(96, 54));
  EXPECT_EQ(sizeAt(95.5, 53.5), std::pair(96, 54));
  EXPECT_EQ(sizeAt(384, 216), std::pair(192, 108));
  EXPECT_EQ(sizeAt(384, 10), std::pair(192, 108));
  zaffo_gtk_paintable_set_scale(paintable, 2);
  EXPECT_EQ(sizeAt(48, 27), std::pair(96, 54));
}

TEST_F(GtkTest, APictureIsConvertedOnce) {
  ZaffoGtkPaintable* const paintable = paintableOf(show("video_only.mp4"));
  GdkTexture* const first = textureAt(paintable, 96, 54);
  GdkTexture* const again = textureAt(paintable, 96, 54);
  EXPECT_EQ(first, again);
  advance(kFrame + kNanosecondsPerMillisecond);
  GdkTexture* const next = textureAt(paintable, 96, 54);
  EXPECT_NE(first, next);
  for (GdkTexture* const texture : {first, again, next}) g_object_unref(texture);
}

TEST_F(GtkTest, ThePictureOfNowIsAnImageOfItsOwn) {
  ZaffoGtkPaintable* const paintable = paintableOf(show("video_only.mp4"));
  advance(7 * kFrame + kNanosecondsPerMillisecond);
  GdkPaintable* const image = gdk_paintable_get_current_image(GDK_PAINTABLE(paintable));
  ASSERT_TRUE(GDK_IS_TEXTURE(image));
  EXPECT_EQ(downloaded(GDK_TEXTURE(image)).frameNumber(), 7);
  zaffo_gtk_paintable_set_active(paintable, FALSE);
  GdkPaintable* const none = gdk_paintable_get_current_image(GDK_PAINTABLE(paintable));
  EXPECT_FALSE(GDK_IS_TEXTURE(none));
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(none), 192);
  g_object_unref(none);
}

TEST_F(GtkTest, WhatIsNotDrawnIsToldOfOneChange) {
  ZaffoGtkPaintable* const paintable = zaffo_gtk_paintable_new(clip("video_only.mp4").c_str());
  settle();
  Changes changes(paintable);
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(changes.take(), 1);
  g_object_unref(textureAt(paintable, 96, 54));
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(changes.take(), 1);
  g_object_unref(paintable);
}

TEST_F(GtkTest, AHiddenWidgetHasNoPlayer) {
  ZaffoGtkVideo* const video = show("video_only.mp4");
  advance(10 * kFrame);
  EXPECT_THAT(players(), HasSubstr("activeUses: 1"));
  Changes changes(paintableOf(video));
  gtk_widget_set_visible(GTK_WIDGET(video), FALSE);
  EXPECT_FALSE(zaffo_gtk_paintable_get_active(paintableOf(video)));
  changes.take();
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(changes.take(), 0);
  EXPECT_THAT(players(), HasSubstr("activeUses: 0"));
  EXPECT_FALSE(textureAt(paintableOf(video), 96, 54));
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(paintableOf(video))), 192);

  gtk_widget_set_visible(GTK_WIDGET(video), TRUE);
  settle();
  EXPECT_EQ(draw(video).frameNumber(), 0) << "it begins anew";
  advance(10 * kFrame + kNanosecondsPerMillisecond);
  EXPECT_EQ(draw(video).frameNumber(), 10);
}

TEST_F(GtkTest, AWidgetThatGoesWhileItPlaysLeavesNothing) {
  ZaffoGtkVideo* video = show("h264_30.mp4");
  ZaffoGtkPaintable* paintable = paintableOf(video);
  g_object_add_weak_pointer(G_OBJECT(video), reinterpret_cast<void**>(&video));
  g_object_add_weak_pointer(G_OBJECT(paintable), reinterpret_cast<void**>(&paintable));
  Changes changes(paintable);
  advance(10 * kFrame);
  gtk_window_set_child(GTK_WINDOW(window_), nullptr);
  drawWindow();
  EXPECT_FALSE(video);
  EXPECT_FALSE(paintable);
  EXPECT_FALSE(zaffo_gtk_pool());
  changes.take();
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(changes.take(), 0);
  EXPECT_FALSE(time_.hasTimer()) << "something still plays";
}

TEST_F(GtkTest, APaintableMayGoInsideWhatItEmits) {
  const std::string missing = "/no such folder/missing.mp4";
  for (const std::string& uri : {clip("video_only.mp4"), missing}) {
    ZaffoGtkPaintable* paintable = zaffo_gtk_paintable_new(uri.c_str());
    const char* const signal = uri == missing ? "failed" : "invalidate-size";
    g_signal_connect(paintable, signal, G_CALLBACK(g_object_unref), nullptr);
    g_object_add_weak_pointer(G_OBJECT(paintable), reinterpret_cast<void**>(&paintable));
    settle();
    EXPECT_FALSE(paintable);
  }
}

TEST_F(GtkTest, ALoadUnderWayIsGivenUp) {
  ZaffoGtkPaintable* const paintable = zaffo_gtk_paintable_new("/no such folder/missing.mp4");
  const Failures failures(paintable);
  zaffo_gtk_paintable_set_uri(paintable, clip("video_only.mp4").c_str());
  settle();
  EXPECT_TRUE(failures.texts().empty());
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(paintable)), 192);
  g_object_unref(paintable);
}

TEST_F(GtkTest, WhatIsWrongWithAFileIsTold) {
  ZaffoGtkPaintable* const paintable = zaffo_gtk_paintable_new("/no such folder/missing.mp4");
  const Failures failures(paintable);
  settle();
  ASSERT_EQ(failures.texts().size(), 1u);
  EXPECT_THAT(failures.texts()[0], HasSubstr("missing.mp4"));
  zaffo_gtk_paintable_set_active(paintable, FALSE);
  zaffo_gtk_paintable_set_active(paintable, TRUE);
  settle();
  EXPECT_EQ(failures.texts().size(), 2u) << "it is tried again";
  g_object_unref(paintable);
}

TEST_F(GtkTest, AnotherClipMayBeTakenInsteadOfOneThatFailed) {
  ZaffoGtkPaintable* const paintable = zaffo_gtk_paintable_new("/no such folder/missing.mp4");
  static const std::string instead = clip("video_only.mp4");
  const auto takeAnother = +[](ZaffoGtkPaintable* failed, const char*, void*) {
    zaffo_gtk_paintable_set_uri(failed, instead.c_str());
  };
  g_signal_connect(paintable, "failed", G_CALLBACK(takeAnother), nullptr);
  settle();
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(paintable)), 192);
  g_object_unref(paintable);
}

TEST_F(GtkTest, AnotherClipHasItsOwnSize) {
  ZaffoGtkVideo* const video = show("video_only.mp4");
  zaffo_gtk_video_set_uri(video, clip("portrait.mp4").c_str());
  EXPECT_EQ(zaffo_gtk_video_get_uri(video), clip("portrait.mp4"));
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(paintableOf(video))), 0);
  settle();
  EXPECT_EQ(gdk_paintable_get_intrinsic_width(GDK_PAINTABLE(paintableOf(video))), 144);
  EXPECT_EQ(gdk_paintable_get_intrinsic_height(GDK_PAINTABLE(paintableOf(video))), 256);
}

TEST_F(GtkTest, ASeekBeforeThereIsAPlayerIsKept) {
  ZaffoGtkPaintable* const paintable = zaffo_gtk_paintable_new(clip("video_only.mp4").c_str());
  zaffo_gtk_paintable_set_loop(paintable, FALSE);
  zaffo_gtk_paintable_pause(paintable);
  zaffo_gtk_paintable_seek(paintable, 40.5 / 30);
  zaffo_gtk_paintable_seek(paintable, -1);
  zaffo_gtk_paintable_seek(paintable, std::numeric_limits<double>::quiet_NaN());
  settle();
  advance(kNanosecondsPerSecond);
  EXPECT_NEAR(zaffo_gtk_paintable_get_position(paintable), 40.5 / 30, 0.0001);
  GdkTexture* const texture = textureAt(paintable, 192, 108);
  ASSERT_TRUE(texture);
  EXPECT_EQ(downloaded(texture).frameNumber(), 40);
  g_object_unref(paintable);
}

TEST_F(GtkTest, PropertiesAreKeptAndTold) {
  ZaffoGtkPaintable* const paintable = paintableOf(show("h264_30.mp4"));
  int told = 0;
  const auto tell = +[](GObject*, GParamSpec*, int* count) { ++*count; };
  const Connection connection(paintable, "notify", G_CALLBACK(tell), &told, GConnectFlags{});
  for (int round = 0; round < 2; ++round) {
    g_object_set(paintable, "volume", 0.25, "playing", FALSE, "scale", 3, nullptr);
  }
  EXPECT_EQ(told, 3);
  double volume = 0;
  gboolean playing = TRUE, looping = TRUE, active = FALSE;
  g_object_get(paintable, "volume", &volume, "playing", &playing, "loop", &looping, "active",
               &active, nullptr);
  EXPECT_EQ(volume, 0.25);
  EXPECT_FALSE(playing);
  EXPECT_FALSE(looping);
  EXPECT_TRUE(active);
  settle();
  const double position = zaffo_gtk_paintable_get_position(paintable);
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(zaffo_gtk_paintable_get_position(paintable), position) << "it is paused";
  zaffo_gtk_paintable_set_volume(paintable, std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(zaffo_gtk_paintable_get_volume(paintable), 0);
}

}  // namespace
}  // namespace zaffo
