// SPDX-License-Identifier: Apache-2.0
#include "overlay/PoolRows.h"

#include <sstream>

#include "figures/Formatted.h"

namespace zaffo::feed {

namespace {

/// What stands in a line between `before` and the next comma that ends a field, or the line's end.
std::string fieldOf(const std::string& line, const std::string& before, const std::string& behind) {
  const auto from = line.find(before);
  if (from == std::string::npos) return {};
  const auto start = from + before.size();
  return line.substr(start, behind.empty() ? std::string::npos : line.rfind(behind) - start);
}

/// "Player 3 - videoId: file:///clips/a.mp4, state: Loaded, activeUses: 1"
Panel::Row playerRow(const std::string& line) {
  std::string video = fieldOf(line, "videoId: ", ", state: ");
  if (const auto slash = video.rfind('/'); slash != std::string::npos) video.erase(0, slash + 1);
  const auto url = NSURL::URLWithString("file:///" + video);
  if (url && !url->lastPathComponent().empty()) video = url->lastPathComponent();
  const std::string uses = fieldOf(line, "activeUses: ", "");
  return {"Player " + fieldOf(line, "Player ", " - "),
          video + "\n" + fieldOf(line, "state: ", ", activeUses") + ", " + uses +
              (uses == "1" ? " use" : " uses")};
}

/// "1.2 ms, at most 3.4 ms"
std::string timesText(const RecentTimes& times) {
  if (times.count == 0) return "nothing of late";
  return formatted("%.1f ms, at most %.1f ms", static_cast<double>(times.median) / 1e6,
                   static_cast<double>(times.longest) / 1e6);
}

}  // namespace

Overlay::Rows poolRows(const PoolFigures& figures) {
  Overlay::Rows rows;
  std::istringstream lines(figures.players);
  for (std::string line; std::getline(lines, line);)
    if (!line.empty()) rows.push_back(playerRow(line));
  rows.insert(rows.begin(),
              {"Players", formatted("%zu of at most %ld", rows.size(), figures.most)});
  rows.push_back({"Memory", formatted("%.1f MiB", figures.memory)});
  rows.push_back({"Threads", std::to_string(figures.threads)});
  rows.push_back({"Frames", formatted("%llu shown, %llu dropped",
                                      static_cast<unsigned long long>(figures.framesShown),
                                      static_cast<unsigned long long>(figures.framesDropped))});
  rows.push_back({"Decoding", timesText(figures.decoding)});
  rows.push_back({"Drawing", timesText(figures.drawing)});
  rows.push_back({"Pictures", formatted("%.1f a second", figures.picturesPerSecond)});
  rows.push_back({"Main thread", formatted("busy for %.1f ms at most", figures.longestTurn)});
  return rows;
}

}  // namespace zaffo::feed
