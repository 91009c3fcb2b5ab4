// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Options.h"
#include "script/Script.h"

namespace zaffo::feed {

/// What a headless run without a script does: it plays each of the first twelve pages for a second,
/// and takes a picture of the feed on the first page.
class Tour {
 public:
  Tour(const Options& options, int pageCount);

  [[nodiscard]] bool isWanted() const { return isWanted_; }
  [[nodiscard]] std::vector<Command> commands() const;
  /// Where the picture is saved.
  [[nodiscard]] std::string lastLine() const;

 private:
  bool isWanted_;
  int pages_;
  std::string picture_;
};

}  // namespace zaffo::feed
