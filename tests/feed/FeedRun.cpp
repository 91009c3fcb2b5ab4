// SPDX-License-Identifier: Apache-2.0
#include "FeedRun.h"

#include <fcntl.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "media/Clips.h"
#include "media/FrameNumber.h"

extern char** environ;

namespace zaffo::feed {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
  std::vector<std::string> result;
  for (char** variable = environ; *variable; ++variable) {
    const std::string text = *variable;
    if (!changes.contains(text.substr(0, text.find('=')))) result.push_back(text);
  }
  for (const auto& [name, value] : changes) result.push_back(name + "=" + value);
  return result;
}

}  // namespace

void FeedRun::run(const Arguments& arguments) {
  start(arguments);
  wait();
}

void FeedRun::start(const Arguments& arguments) {
  std::vector<std::string> words{ZAFFO_FEED_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  auto variables = environmentWith(environment);

  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("there is no pipe");
  outputEnd_ = pipeEnds[0];
  output_.clear();

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder_.path().c_str());
  std::ofstream(file("input")) << input;
  posix_spawn_file_actions_addopen(&actions, 0, "input", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, "errors", O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int error = posix_spawn(&pid_, ZAFFO_FEED_PROGRAM, &actions, nullptr,
                                pointers(words).data(), pointers(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(pipeEnds[1]);
  if (error != 0) throw std::runtime_error("the program cannot be started");
}

bool FeedRun::readOutput() {
  char bytes[4096];
  const auto count = read(outputEnd_, bytes, sizeof bytes);
  if (count > 0) output_.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

void FeedRun::feed(const std::string& script, const std::vector<std::string>& inputs,
                   Arguments options) {
  options.insert(options.end(), {"-e", script});
  options.insert(options.end(), inputs.begin(), inputs.end());
  run(headless(options));
}

bool FeedRun::waitForOutput(const std::string& text) {
  while (output_.find(text) == std::string::npos) {
    if (!readOutput()) return false;
  }
  return true;
}

void FeedRun::wait() {
  while (readOutput()) {
  }
  close(outputEnd_);
  int how = 0;
  if (waitpid(pid_, &how, 0) != pid_) throw std::runtime_error("the program is not to be found");
  status_ = WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
}

std::string FeedRun::text(const std::string& name) const {
  std::ifstream stream(file(name), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

nlohmann::json FeedRun::json(const std::string& name) const {
  return nlohmann::json::parse(text(name));
}

int FeedRun::frameIn(const std::string& picture) const {
  return readPNG(file(picture)).frameNumber();
}

std::vector<std::string> strangeClips() {
  std::vector<std::string> clips;
  for (const auto& entry : std::filesystem::directory_iterator(test::clip(""))) {
    const std::string name = entry.path().filename().string();
    const bool strange = name.starts_with("cut_") || name.starts_with("damaged") ||
                         name.starts_with("absurd") || name.starts_with("zero") ||
                         name.starts_with("no_") || name == "tiny.mp4" || name == "odd_size.webm";
    if (strange) clips.push_back(entry.path().string());
  }
  return clips;
}

std::string testNameOf(std::string file) {
  std::ranges::replace(file, '.', '_');
  return file;
}

FeedRun::Arguments headless(const FeedRun::Arguments& more) {
  FeedRun::Arguments arguments{"--headless", "--no-sound", "--size", "192x108"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

Picture readPNG(const std::string& path) {
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&header, path.c_str())) return {};
  header.format = PNG_FORMAT_GRAY;
  Picture picture{static_cast<int>(header.width), static_cast<int>(header.height),
                  std::vector<uint8_t>(PNG_IMAGE_SIZE(header))};
  if (!png_image_finish_read(&header, nullptr, picture.gray.data(), 0, nullptr)) return {};
  return picture;
}

int Picture::frameNumber() const {
  return test::readFrameNumber(width, height, [this](int x, int y) -> double { return at(x, y); })
      .value_or(-1);
}

}  // namespace zaffo::feed
