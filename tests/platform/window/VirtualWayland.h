// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "VirtualDisplay.h"

namespace zaffo {

/// A Wayland compositor that fills a virtual X server with one window at a time, whatever size that
/// asks for; for as long as this lives. It becomes the display of the process. Keys and the pointer
/// come from the X server.
class VirtualWayland {
 public:
  /// The sides of its screen, in points.
  static constexpr int kSide = 160;

  /// Null when there is no weston or no Xvfb, or one does not start. `scale`: device pixels a
  /// point.
  [[nodiscard]] static std::unique_ptr<VirtualWayland> start(int scale = 1) {
    if (!hasProgram("weston")) return nullptr;
    std::unique_ptr<VirtualWayland> wayland(new VirtualWayland);
    wayland->server_ = VirtualDisplay::start(scale * kSide, scale * kSide);
    if (!wayland->server_ || !wayland->makeFolder() || !wayland->startCompositor(scale)) {
      return nullptr;
    }
    setenv("XDG_RUNTIME_DIR", wayland->folder_.c_str(), 1);
    setenv("WAYLAND_DISPLAY", kSocket, 1);
    setenv("SDL_VIDEODRIVER", "wayland", 1);
    return wayland;
  }
  ~VirtualWayland() {
    unsetenv("WAYLAND_DISPLAY");
    unsetenv("XDG_RUNTIME_DIR");
    if (compositor_ > 0) {
      kill(compositor_, SIGTERM);
      waitpid(compositor_, nullptr, 0);
    }
    if (log_ >= 0) close(log_);
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }
  VirtualWayland(const VirtualWayland&) = delete;
  VirtualWayland& operator=(const VirtualWayland&) = delete;

 private:
  static constexpr const char* kSocket = "zaffo-test";

  VirtualWayland() = default;

  bool makeFolder() {
    std::string pattern = testing::TempDir() + "zaffo-wayland-XXXXXX";
    if (!mkdtemp(pattern.data())) return false;
    folder_ = pattern;
    return true;
  }

  /// Returns once the compositor takes clients: it loads its shell after it has opened its socket.
  bool startCompositor(int scale) {
    int log[2];
    if (pipe(log) != 0) return false;
    compositor_ = fork();
    if (compositor_ == 0) {
      close(log[0]);
      dup2(log[1], STDERR_FILENO);
      dup2(log[1], STDOUT_FILENO);
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
      const std::string scaling = "--scale=" + std::to_string(scale);
      const std::string width = "--width=" + std::to_string(kSide);
      const std::string height = "--height=" + std::to_string(kSide);
      const std::string socket = std::string("--socket=") + kSocket;
      execlp("weston", "weston", "--backend=x11-backend.so", "--shell=kiosk-shell.so",
             "--no-config", "--use-pixman", "--idle-time=0", scaling.c_str(), width.c_str(),
             height.c_str(), socket.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(log[1]);
    log_ = log[0];
    std::string text;
    for (char letter = 0; text.find("kiosk-shell.so'") == std::string::npos; text += letter) {
      if (read(log_, &letter, 1) != 1) return false;
    }
    return true;
  }

  std::unique_ptr<VirtualDisplay> server_;
  std::string folder_;
  pid_t compositor_ = 0;
  int log_ = -1;  ///< the end that is read; what it writes later fits into the pipe
};

}  // namespace zaffo
