// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "WindowTestSupport.h"

namespace zaffo {

/// Whether a program is on the PATH.
[[nodiscard]] inline bool hasProgram(const std::string& name) {
  return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

/// An X server without a screen, by default as large as the window that a test opens, on a display
/// number that is free, for as long as this lives. It becomes the display of the process.
class VirtualDisplay {
 public:
  /// Null when there is no Xvfb, or it does not start.
  [[nodiscard]] static std::unique_ptr<VirtualDisplay> start(int width = 200, int height = 300) {
    if (!hasProgram("Xvfb")) return nullptr;
    int report[2];
    if (pipe(report) != 0) return nullptr;
    const pid_t server = fork();
    if (server == 0) {
      close(report[0]);
      const int silence = open("/dev/null", O_WRONLY);
      dup2(silence, STDERR_FILENO);
      dup2(silence, STDOUT_FILENO);
      prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that is killed leaves no server behind
      const std::string descriptor = std::to_string(report[1]);
      const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
      execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", screen.c_str(),
             "-nolisten", "tcp", static_cast<char*>(nullptr));
      _exit(127);
    }
    close(report[1]);
    std::unique_ptr<VirtualDisplay> display(new VirtualDisplay(server));
    std::string number;
    for (char digit = 0; read(report[0], &digit, 1) == 1 && digit != '\n';) number += digit;
    close(report[0]);
    if (number.empty()) return nullptr;
    setenv("DISPLAY", (":" + number).c_str(), 1);
    setenv("SDL_VIDEODRIVER", "x11", 1);
    return display;
  }
  ~VirtualDisplay() {
    unsetenv("DISPLAY");
    if (server_ <= 0) return;
    kill(server_, SIGTERM);
    waitpid(server_, nullptr, 0);
  }
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  /// What a person in front of the display would see of the area.
  [[nodiscard]] static CGImagePtr screenshot(int width, int height) {
    const std::string command = "import -silent -window root -crop " + std::to_string(width) + "x" +
                                std::to_string(height) + "+0+0 -depth 8 bgra:-";
    FILE* pipe = popen(command.c_str(), "r");
    std::vector<uint8_t> pixels(std::size_t{4} * width * height);
    const std::size_t got = pipe ? fread(pixels.data(), 1, pixels.size(), pipe) : 0;
    if (pipe) pclose(pipe);
    if (got != pixels.size()) return nullptr;
    return std::make_shared<const CGImage>(width, height, std::size_t{4} * width,
                                           std::move(pixels));
  }

  /// Starts a program that acts like a person; it ends by itself.
  static void act(const std::string& arguments) {
    const pid_t person = fork();
    if (person == 0) {
      execlp("sh", "sh", "-c", ("exec xdotool " + arguments + " >/dev/null").c_str(),
             static_cast<char*>(nullptr));
      _exit(127);
    }
    int status = -1;
    waitpid(person, &status, 0);
    EXPECT_EQ(status, 0) << "xdotool " << arguments;
  }

 private:
  explicit VirtualDisplay(pid_t server) : server_(server) {}
  pid_t server_;
};

}  // namespace zaffo
