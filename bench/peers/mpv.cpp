// SPDX-License-Identifier: Apache-2.0

// libmpv, its core driven by events; pictures go to its null output, as ours go nowhere.
#include <clocale>

#include <mpv/client.h>

#include "Peer.h"

namespace {

class MpvPlayer final : public peers::Player {
 public:
  MpvPlayer() {
    std::setlocale(LC_NUMERIC, "C");
    player_ = mpv_create();
    if (!player_) peers::fail("mpv_create failed");
    // No user configuration, scripts or cache: local files. Exact seeks, one decoder thread.
    for (const auto& [name, value] : {std::pair{"config", "no"},
                                      {"load-scripts", "no"},
                                      {"ytdl", "no"},
                                      {"osc", "no"},
                                      {"input-default-bindings", "no"},
                                      {"cache", "no"},
                                      {"hwdec", "no"},
                                      {"vo", "null"},
                                      {"ao", "null"},
                                      {"pause", "yes"},
                                      {"keep-open", "yes"},
                                      {"hr-seek", "yes"},
                                      {"vd-lavc-threads", "1"},
                                      {"audio-file-auto", "no"},
                                      {"sub-auto", "no"},
                                      {"idle", "yes"}}) {
      check(mpv_set_option_string(player_, name, value), name);
    }
    check(mpv_initialize(player_), "mpv_initialize");
  }
  ~MpvPlayer() override { mpv_terminate_destroy(player_); }

  void open(const std::string& path) override {
    set("pause", "yes");
    const char* command[] = {"loadfile", path.c_str(), nullptr};
    check(mpv_command(player_, command), "loadfile");
    waitForPicture(true);
  }
  void openLooping(const std::string& path) override {
    set("loop-file", "inf");
    open(path);
  }
  void seek(double seconds) override {
    const std::string target = std::to_string(seconds);
    const char* command[] = {"seek", target.c_str(), "absolute+exact", nullptr};
    check(mpv_command(player_, command), "seek");
    waitForPicture(false);
  }
  void play() override { set("pause", "no"); }
  long pictures() override {
    // There is no count of pictures shown; one that comes changes the place in the clip.
    double time = 0;
    mpv_get_property(player_, "time-pos", MPV_FORMAT_DOUBLE, &time);
    if (time != time_) ++pictures_;
    time_ = time;
    return pictures_;
  }

 private:
  static void check(int status, const char* what) {
    if (status < 0) peers::fail(std::string(what) + ": " + mpv_error_string(status));
  }
  void set(const char* name, const char* value) {
    check(mpv_set_property_string(player_, name, value), name);
  }
  /// The event that says that playback is ready to go on: the picture is there.
  void waitForPicture(bool ofNewFile) {
    bool loaded = !ofNewFile;
    for (;;) {
      const mpv_event* event = mpv_wait_event(player_, peers::kPatience);
      if (event->event_id == MPV_EVENT_NONE) peers::fail("mpv gave no picture");
      loaded = loaded || event->event_id == MPV_EVENT_FILE_LOADED;
      if (loaded && event->event_id == MPV_EVENT_PLAYBACK_RESTART) return;
    }
  }

  mpv_handle* player_ = nullptr;
  double time_ = -1;
  long pictures_ = 0;
};

}  // namespace

std::unique_ptr<peers::Player> peers::makePlayer() {
  return std::make_unique<MpvPlayer>();
}

void peers::runFor(double seconds) {
  peers::letTimePass(seconds);
}
