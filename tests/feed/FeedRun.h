// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TemporaryFolder.h"

namespace zaffo::feed {

/// One run of the program, in a folder of its own.
class FeedRun {
 public:
  using Arguments = std::vector<std::string>;

  /// Variables of the environment that differ from this process's.
  std::map<std::string, std::string> environment;

  /// What it reads on standard input.
  std::string input;

  /// Runs the program with these arguments to its end.
  void run(const Arguments& arguments);

  /// A headless run of `script` over clips and files.
  void feed(const std::string& script, const std::vector<std::string>& inputs,
            Arguments options = {});

  /// Starts it; wait() sees it end.
  void start(const Arguments& arguments);
  /// Waits until `text` stands in what it has written to standard output; false when it ended
  /// without writing that.
  [[nodiscard]] bool waitForOutput(const std::string& text);
  void wait();
  [[nodiscard]] int pid() const { return pid_; }

  /// The status it ended with; 128 and the signal's number when one ended it.
  [[nodiscard]] int status() const { return status_; }
  [[nodiscard]] const std::string& output() const { return output_; }
  [[nodiscard]] std::string errors() const { return text("errors"); }
  [[nodiscard]] std::string file(const std::string& name) const { return folder_.file(name); }
  [[nodiscard]] std::string text(const std::string& name) const;
  [[nodiscard]] nlohmann::json json(const std::string& name) const;
  /// The number of the frame that a picture shows.
  [[nodiscard]] int frameIn(const std::string& picture) const;

 private:
  /// Appends what comes next on its standard output; false at the end.
  bool readOutput();

  const TemporaryFolder folder_;
  int pid_ = 0;
  int outputEnd_ = -1;  // the end of the pipe that is read
  std::string output_;
  int status_ = -1;
};

/// The arguments of a headless run without sound on small pages, then `more`.
[[nodiscard]] FeedRun::Arguments headless(const FeedRun::Arguments& more);

/// The test clips that are damaged or otherwise unlike what a feed is made for.
[[nodiscard]] std::vector<std::string> strangeClips();

/// The name of a test that is run over a file.
[[nodiscard]] std::string testNameOf(std::string file);

/// The size and the pixels of a PNG, as FrameNumber.h reads them.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> gray;

  [[nodiscard]] int at(int x, int y) const {
    return gray[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                static_cast<std::size_t>(x)];
  }
  /// The number of the test clip's frame that fills the whole picture; -1 when it has none.
  [[nodiscard]] int frameNumber() const;
};

/// Empty when the file is no PNG.
[[nodiscard]] Picture readPNG(const std::string& path);

}  // namespace zaffo::feed
