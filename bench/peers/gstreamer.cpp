// SPDX-License-Identifier: Apache-2.0

// GStreamer's playbin3 with sinks that keep time and show nothing.
#include <atomic>

#include <gst/gst.h>

#include "Peer.h"

namespace {

/// For "deep-element-added": decoders are made while the pipeline is put together.
void useOneThread(GstBin* /*bin*/, GstBin* /*inner*/, GstElement* element, gpointer /*data*/) {
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), "max-threads")) {
    g_object_set(element, "max-threads", 1, nullptr);
  }
}

class GstPlayer final : public peers::Player {
 public:
  GstPlayer() {
    gst_init(nullptr, nullptr);
    pipeline_ = gst_element_factory_make("playbin3", nullptr);
    GstElement* video = gst_element_factory_make("fakesink", nullptr);
    GstElement* audio = gst_element_factory_make("fakesink", nullptr);
    if (!pipeline_ || !video || !audio) peers::fail("GStreamer lacks playbin3");
    g_object_set(video, "sync", TRUE, "signal-handoffs", TRUE, nullptr);
    g_object_set(audio, "sync", TRUE, nullptr);
    g_signal_connect(video, "handoff", G_CALLBACK(&GstPlayer::count), this);
    g_object_set(pipeline_, "video-sink", video, "audio-sink", audio, nullptr);
    g_signal_connect(pipeline_, "deep-element-added", G_CALLBACK(useOneThread), nullptr);
  }
  ~GstPlayer() override {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
  }

  void open(const std::string& path) override {
    gst_element_set_state(pipeline_, GST_STATE_READY);
    setAddress(path);
    gst_element_set_state(pipeline_, GST_STATE_PAUSED);
    waitUntilPrerolled();
  }
  void openLooping(const std::string& path) override {
    path_ = path;
    // The documented way to play on without a gap: the next address before the end.
    g_signal_connect(
        pipeline_, "about-to-finish",
        G_CALLBACK(+[](GstElement*, GstPlayer* self) { self->setAddress(self->path_); }), this);
    open(path);
  }
  void seek(double seconds) override {
    const auto target = static_cast<gint64>(seconds * GST_SECOND);
    const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    if (!gst_element_seek_simple(pipeline_, GST_FORMAT_TIME, flags, target)) {
      peers::fail("GStreamer refused to seek");
    }
    waitUntilPrerolled();
  }
  void play() override { gst_element_set_state(pipeline_, GST_STATE_PLAYING); }
  long pictures() override { return pictures_; }

 private:
  static void count(GstElement* /*sink*/, GstBuffer* /*buffer*/, GstPad* /*pad*/, GstPlayer* self) {
    ++self->pictures_;
  }
  void setAddress(const std::string& path) {
    gchar* address = peers::isAddress(path) ? g_strdup(path.c_str())
                                            : gst_filename_to_uri(path.c_str(), nullptr);
    if (!address) peers::fail("no such file: " + path);
    g_object_set(pipeline_, "uri", address, nullptr);
    g_free(address);
  }
  void waitUntilPrerolled() {
    const auto patience = static_cast<GstClockTime>(peers::kPatience * GST_SECOND);
    if (gst_element_get_state(pipeline_, nullptr, nullptr, patience) != GST_STATE_CHANGE_SUCCESS) {
      peers::fail("GStreamer gave no picture");
    }
  }

  GstElement* pipeline_ = nullptr;
  std::string path_;
  std::atomic<long> pictures_{0};
};

}  // namespace

std::unique_ptr<peers::Player> peers::makePlayer() {
  return std::make_unique<GstPlayer>();
}

void peers::runFor(double seconds) {
  peers::letTimePass(seconds);
}
