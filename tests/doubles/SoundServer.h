// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace zaffo {

/// A program that runs beside the test, with one of its outputs in a pipe, and ends with this
/// object.
class ChildProcess {
 public:
  /// `output`: the descriptor of the child to read from, 1 or 2; the other one goes nowhere.
  ChildProcess(const std::vector<std::string>& arguments, int output) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    std::vector<char*> argv;
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      const int nowhere = open("/dev/null", O_RDWR);
      dup2(nowhere, 0);
      dup2(nowhere, output == 1 ? 2 : 1);
      dup2(ends[1], output);
      execvp(argv[0], argv.data());
      _exit(127);
    }
    close(ends[1]);
    output_ = fdopen(ends[0], "rb");
  }
  ~ChildProcess() {
    end();
    if (output_) std::fclose(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Kills it and waits for its end.
  void end() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

  [[nodiscard]] std::FILE* output() const { return output_; }

 private:
  pid_t pid_ = -1;
  std::FILE* output_ = nullptr;
};

/// A PulseAudio server of the test's own, in a directory of its own, with one sink that plays
/// nowhere. While it lives the sound libraries of this process find it and no other.
class SoundServer {
 public:
  [[nodiscard]] static bool installed() {
    return std::system("command -v pulseaudio parec >/dev/null 2>&1") == 0;
  }

  SoundServer() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zaffo-sound-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    setenv("PULSE_RUNTIME_PATH", directory_.c_str(), 1);
    setenv("PULSE_STATE_PATH", directory_.c_str(), 1);
    setenv("PULSE_COOKIE", (directory_ + "/cookie").c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + socket()).c_str(), 1);
    start();
  }
  ~SoundServer() {
    stop();
    std::filesystem::remove_all(directory_);
  }

  /// Starts it (again). Returns whether it is ready.
  bool start() {
    server_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
            "--disable-shm=yes", "--log-target=stderr", "--log-level=info", "-L",
            "module-null-sink sink_name=speaker rate=48000 channels=2 format=float32le", "-L",
            "module-native-protocol-unix auth-anonymous=1 socket=" + socket()},
        2);
    char line[1024];
    while (std::fgets(line, sizeof line, server_->output())) {
      if (std::string(line).find("Daemon startup complete") != std::string::npos) return true;
    }
    return false;
  }
  void stop() {
    server_.reset();
    std::filesystem::remove(socket());
  }

  /// What the sink plays from now on, as raw 32-bit float stereo at 48 kHz.
  [[nodiscard]] std::unique_ptr<ChildProcess> listen() const {
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"parec", "--device=speaker.monitor", "--format=float32le",
                                 "--rate=48000", "--channels=2", "--raw", "--latency-msec=20"},
        1);
  }

 private:
  [[nodiscard]] std::string socket() const { return directory_ + "/native"; }

  std::string directory_;
  std::unique_ptr<ChildProcess> server_;
};

}  // namespace zaffo
