// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <random>
#include <string>
#include <vector>

#include "platform/network/FetchPlan.h"

namespace zaffo::simulation {

/// What a feed over a network is like: clips, the viewers of each, and links of four classes.

inline constexpr double kRoundTrip = 0.08;         // seconds, before each chunk
inline constexpr std::size_t kClipsSeenAhead = 4;  // by a policy, besides the present one
inline constexpr std::array<double, 3> kQualities{0.75, 1.2, 1.85};  // Mbit/s

struct Clip {
  int seconds = 0;  ///< and as many chunks
  std::vector<network::ViewerShare> viewers;
  std::vector<std::array<double, kQualities.size()>> megabits;  ///< of each chunk
};

/// The seven clips, with the sizes of their chunks drawn.
[[nodiscard]] std::vector<Clip> makeClips(std::mt19937& random);

/// When a viewer swipes on, in seconds of each clip.
[[nodiscard]] std::vector<double> makeViewer(const std::vector<Clip>& clips, std::mt19937& random);

struct LinkClass {
  std::string name;
  double mean;         ///< Mbit/s
  double spread;       ///< standard deviation of the logarithm
  double correlation;  ///< from second to second
  bool isMixed;        ///< whether the mean differs from trace to trace
};
[[nodiscard]] const std::array<LinkClass, 4>& linkClasses();

/// Mbit/s in each second.
[[nodiscard]] std::vector<double> makeLink(const LinkClass& kind, std::mt19937& random);

}  // namespace zaffo::simulation
