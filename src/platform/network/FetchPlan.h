// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <vector>

namespace zaffo::network {

/// The viewers who still watch at a time within a clip, from 1 at its start downwards.
struct ViewerShare {
  double seconds = 0;
  double share = 1;
};

/// One of the renditions that a clip's next chunk comes in.
struct ChunkOffer {
  double megabitsPerSecond = 0;  ///< what the picture is worth
  double megabits = 0;           ///< what the chunk costs
};

/// What is known of a clip: the one in view, or one that a swipe leads to.
struct ClipOutlook {
  double position = 0;  ///< where it plays, in seconds; 0 for those to come
  double buffered = 0;  ///< seconds held from there on
  double chunkSeconds = 1;
  std::vector<ChunkOffer> next;       ///< renditions of the next chunk, rising; none at the end
  std::optional<double> lastQuality;  ///< megabitsPerSecond of the chunk before
  std::span<const ViewerShare> viewers;
};

/// What to do next.
struct FetchChoice {
  std::optional<std::size_t> clip;  ///< whose next chunk to fetch; null to wait
  std::size_t rendition = 0;
  double waitSeconds = 0;  ///< after which to ask again, or at the next swipe
};

/// Decides which clip's next chunk to fetch, in which rendition, or how long to wait: what is worth
/// most per second of the link, by the viewers who will see it, the stalls that it saves and the
/// bytes that are wasted when they swipe. The rule is told in docs/preloading.md. Pure. Thread:
/// any.
class FetchPlan {
 public:
  /// What a stalled second and a fetched megabit cost, in megabits per second seen for a second.
  static constexpr double kStallCost = 1.85;
  static constexpr double kMegabitCost = 0.5;

  /// What the rule weighs, found by simulation (tools/simulate).
  struct Weights {
    double spread = 0.45;      ///< usual standard deviation of the logarithm of what a link gives
    double caution = 1.75;     ///< by which the one that was measured is widened
    double evenness = 0.6;     ///< what of it is left over several chunks
    double memory = 0.97;      ///< of the average of past throughputs, for each step back
    double delay = 2.9;        ///< seconds by which fetching later is compared with fetching now
    double hedge = 0.36;       ///< of the risk to stall
    double horizon = 10;       ///< chunks over which a rendition must be sustained
    double sustain = 2.6;      ///< of the risk not to
    double steadiness = 1.0;   ///< of a change: it is rarely the last
    double leastGain = 0.003;  ///< below which nothing is fetched
    double longestWait = 0.1;  ///< seconds
  };

  FetchPlan() = default;
  explicit FetchPlan(const Weights& weights) : weights_(weights) {}

  /// `clips` begins with the one in view; `throughputs` are the past ones in Mbit/s, latest last,
  /// and may be empty; `roundTrip` is in seconds.
  [[nodiscard]] FetchChoice choose(std::span<const ClipOutlook> clips,
                                   std::span<const double> throughputs, double roundTrip) const;

  /// The share who still watch at a time, between the points that are given.
  [[nodiscard]] static double shareAt(std::span<const ViewerShare> viewers, double seconds);

 private:
  class Link;
  struct Outlook;
  struct Gain;

  [[nodiscard]] Gain gainOf(std::span<const ClipOutlook> clips, std::size_t index,
                            const Outlook& outlook) const;
  [[nodiscard]] std::size_t renditionFor(const ClipOutlook& clip, double lead, double share,
                                         const Outlook& outlook) const;

  Weights weights_;
};

}  // namespace zaffo::network
