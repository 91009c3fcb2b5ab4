// SPDX-License-Identifier: Apache-2.0
#include "figures/Formatted.h"
#include "figures/Statistics.h"

namespace zaffo::feed {

namespace {

std::string time(int64_t start, const std::optional<int64_t>& end) {
  return end ? formatted("%.2f ms", static_cast<double>(*end - start) / 1e6) : "-";
}

std::string row(const Swipe& swipe) {
  std::string text =
      formatted("%4d  %-5s %11s %12s %6llu %8llu  ", swipe.page, swipe.warm ? "warm" : "cold",
                time(swipe.requested, swipe.completed).c_str(),
                time(swipe.requested, swipe.firstFrame).c_str(),
                static_cast<unsigned long long>(swipe.framesShown),
                static_cast<unsigned long long>(swipe.framesDropped));
  text += swipe.video;
  if (!swipe.error.empty()) text += ": " + swipe.error;
  return text + "\n";
}

}  // namespace

std::string Statistics::summary() const {
  std::string text = formatted("%4s  %-5s %11s %12s %6s %8s  %s\n", "page", "start", "player in",
                               "picture in", "shown", "dropped", "video");
  for (const auto& swipe : swipes_) text += row(*swipe);
  text += formatted("The main thread was never blocked for longer than %.2f ms.\n",
                    static_cast<double>(longestBlock_) / 1e6);
  if (final_) {
    text += formatted("%d players, %d threads, %d file descriptors, %.1f MiB of memory.\n",
                      final_->players, final_->process.threads, final_->process.fileDescriptors,
                      static_cast<double>(final_->process.residentBytes) / (1024 * 1024));
  }
  return text;
}

}  // namespace zaffo::feed
