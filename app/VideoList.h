// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Options.h"
#include "feed/ClipLists.h"
#include "feed/FeedVideo.h"

namespace zaffo::feed {

/// One video a page; a clip that appears more than once has an id for each page. Thread: main.
class VideoList {
 public:
  VideoList(const Clips& clips, Options::Loop loop);

  /// More pages at the end.
  void add(const Clips& clips);
  [[nodiscard]] int count() const { return static_cast<int>(videos_.size()); }
  [[nodiscard]] const std::shared_ptr<FeedVideo>& at(int page) const {
    return videos_[static_cast<std::size_t>(page)];
  }

 private:
  const Options::Loop loop_;
  std::vector<std::shared_ptr<FeedVideo>> videos_;
  std::map<std::string, int> uses_;  // by address
};

}  // namespace zaffo::feed
