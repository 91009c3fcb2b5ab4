// SPDX-License-Identifier: Apache-2.0

// libVLC: pictures go to memory, which is its way to hand them over; sound to its dummy output.
#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include <vlc/vlc.h>

#include "Peer.h"

namespace {

libvlc_instance_t* library() {
  static libvlc_instance_t* const instance = [] {
    const std::array options{"--no-video-title-show", "--aout=dummy", "--no-stats",
                             "--file-caching=0",      "--no-spu",     "--avcodec-threads=1",
                             "--avcodec-hw=none",     "--no-xlib",    "--quiet",
                             "--no-input-fast-seek"};
    return libvlc_new(static_cast<int>(options.size()), options.data());
  }();
  if (!instance) peers::fail("libvlc_new failed");
  return instance;
}

class VlcPlayer final : public peers::Player {
 public:
  VlcPlayer() : player_(libvlc_media_player_new(library())) {
    libvlc_video_set_callbacks(player_, &VlcPlayer::lock, nullptr, &VlcPlayer::display, this);
    libvlc_video_set_format_callbacks(player_, &VlcPlayer::setUp, nullptr);
  }
  ~VlcPlayer() override {
    libvlc_media_player_stop(player_);
    libvlc_media_player_release(player_);
  }

  void open(const std::string& path) override { open(path, {}); }
  void openLooping(const std::string& path) override { open(path, {":input-repeat=65535"}); }
  void seek(double seconds) override {
    const long before = pictures();
    libvlc_media_player_set_time(player_, static_cast<libvlc_time_t>(seconds * 1000));
    waitForPictureAfter(before);
  }
  void play() override { libvlc_media_player_set_pause(player_, 0); }
  long pictures() override {
    const std::lock_guard lock(mutex_);
    return pictures_;
  }

 private:
  void open(const std::string& path, const std::vector<const char*>& options) {
    libvlc_media_player_stop(player_);
    libvlc_media_t* media = peers::isAddress(path)
                                ? libvlc_media_new_location(library(), path.c_str())
                                : libvlc_media_new_path(library(), path.c_str());
    for (const char* option : options) libvlc_media_add_option(media, option);
    libvlc_media_player_set_media(player_, media);
    libvlc_media_release(media);
    const long before = pictures();
    libvlc_media_player_play(player_);
    // Started paused it would show nothing.
    waitForPictureAfter(before);
    libvlc_media_player_set_pause(player_, 1);
  }
  void waitForPictureAfter(long before) {
    std::unique_lock lock(mutex_);
    const std::chrono::duration<double> patience(peers::kPatience);
    if (!shown_.wait_for(lock, patience, [&] { return pictures_ != before; })) {
      peers::fail("libVLC gave no picture");
    }
  }

  static unsigned setUp(void** opaque, char* chroma, unsigned* width, unsigned* height,
                        unsigned* pitches, unsigned* lines) {
    auto& self = *static_cast<VlcPlayer*>(*opaque);
    std::copy_n("I420", 4, chroma);  // as it is decoded
    const unsigned stride = (*width + 63) / 64 * 64, rows = (*height + 63) / 64 * 64;
    for (int plane = 0; plane < 3; ++plane) {
      pitches[plane] = plane == 0 ? stride : stride / 2;
      lines[plane] = plane == 0 ? rows : rows / 2;
      self.planes_[static_cast<std::size_t>(plane)].resize(std::size_t{stride} * rows);
    }
    return 1;
  }
  static void* lock(void* opaque, void** planes) {
    auto& self = *static_cast<VlcPlayer*>(opaque);
    for (auto& plane : self.planes_) *planes++ = plane.data();
    return nullptr;
  }
  static void display(void* opaque, void* /*picture*/) {
    auto& self = *static_cast<VlcPlayer*>(opaque);
    const std::lock_guard lock(self.mutex_);
    ++self.pictures_;
    self.shown_.notify_one();
  }

  libvlc_media_player_t* const player_;
  std::array<std::vector<uint8_t>, 3> planes_;
  std::mutex mutex_;
  std::condition_variable shown_;
  long pictures_ = 0;
};

}  // namespace

std::unique_ptr<peers::Player> peers::makePlayer() {
  return std::make_unique<VlcPlayer>();
}

void peers::runFor(double seconds) {
  peers::letTimePass(seconds);
}
