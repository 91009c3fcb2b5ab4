// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "FeedModel.h"

namespace zaffo::simulation {

/// One of those who decide: the same question as FetchPlan is asked.
struct Policy {
  std::string name;
  std::function<network::FetchChoice(std::span<const network::ClipOutlook>,
                                     std::span<const double>)>
      choose;
};

/// The product's.
[[nodiscard]] Policy plannedPolicy(const network::FetchPlan& plan = network::FetchPlan());
/// Fills the present clip, then 800 kB of each of the next, in the lowest rendition: it hoards.
[[nodiscard]] Policy fillingPolicy();
/// Holds 4 s of the present clip and of each next one, in the middle rendition: it stalls.
[[nodiscard]] Policy fixedPolicy();

/// What a run, or many of them on average, came to.
struct Outcome {
  double score = 0;
  double quality = 0;  ///< Mbit/s, summed over the chunks that were watched
  double changes = 0;
  double stalled = 0;  ///< seconds
  double fetched = 0;  ///< megabits
  double wasted = 0;   ///< of these, what nobody watched

  Outcome& operator+=(const Outcome& other);
  [[nodiscard]] Outcome dividedBy(int runs) const;
};

/// One viewer goes through all clips on one link.
[[nodiscard]] Outcome simulate(const Policy& policy, const std::vector<Clip>& clips,
                               const std::vector<double>& leaves,
                               const std::vector<double>& throughputs);

/// The average over so many viewers, each on a link of the class of their own. The same seed gives
/// the same viewers and links to every policy.
[[nodiscard]] Outcome average(const Policy& policy, const LinkClass& kind, int viewers,
                              unsigned seed);

}  // namespace zaffo::simulation
