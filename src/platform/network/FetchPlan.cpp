// SPDX-License-Identifier: Apache-2.0
#include "platform/network/FetchPlan.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace zaffo::network {

namespace {

/// Before anything was measured: a slow link, so that the first picture comes soon.
constexpr double kUnknownThroughput = 1.0;
constexpr double kSlowest = 0.05;

/// The standard normal distribution as seven points of equal weight.
constexpr std::array<double, 7> kNormalPoints{-1.47, -0.79, -0.37, 0, 0.37, 0.79, 1.47};

/// The logarithm's average and its standard deviation.
struct Estimate {
  double middle = 0, spread = 0;
};

Estimate estimateOf(std::span<const double> throughputs, double memory, double usualSpread) {
  constexpr double kDoubt = 2;  // for as many measurements the usual spread counts
  double weight = 1;
  double sum = 0;
  double squares = 0;
  double weights = 0;
  // Of logarithms: one burst does not make a link fast.
  for (auto past = throughputs.rbegin(); past != throughputs.rend(); ++past) {
    const double value = std::log(std::max(*past, kSlowest));
    sum += weight * value;
    squares += weight * value * value;
    weights += weight;
    weight *= memory;
  }
  if (weights <= 0) return {std::log(kUnknownThroughput), usualSpread};
  const double middle = sum / weights;
  const double variance = std::max(0.0, squares - sum * middle);
  const double usual = kDoubt * usualSpread * usualSpread;
  return {middle, std::sqrt((variance + usual) / (weights + kDoubt))};
}

}  // namespace

/// What the link may give next.
class FetchPlan::Link {
 public:
  Link(const Estimate& estimate, double roundTrip) : roundTrip_(roundTrip) {
    for (std::size_t i = 0; i < throughputs_.size(); ++i) {
      throughputs_[i] = std::exp(estimate.middle + estimate.spread * kNormalPoints[i]);
    }
  }

  /// Seconds that `megabits` take on average.
  [[nodiscard]] double time(double megabits) const { return lateness(megabits, 0); }
  /// Seconds that they come later than in `lead` on average; 0 for each time that they do not.
  [[nodiscard]] double lateness(double megabits, double lead) const {
    double sum = 0;
    for (const double throughput : throughputs_) {
      sum += std::max(0.0, roundTrip_ + megabits / throughput - lead);
    }
    return sum / static_cast<double>(throughputs_.size());
  }

 private:
  std::array<double, kNormalPoints.size()> throughputs_{};
  const double roundTrip_;
};

/// For the next chunk, and over several, in which good moments make up for bad ones.
struct FetchPlan::Outlook {
  Link soon, overall;
};

/// What fetching a clip's next chunk now rather than later is worth.
struct FetchPlan::Gain {
  double inAll = -std::numeric_limits<double>::infinity();
  double perSecond = inAll;  ///< of the link
  std::size_t rendition = 0;
};

double FetchPlan::shareAt(std::span<const ViewerShare> viewers, double seconds) {
  ViewerShare before;
  for (const ViewerShare& point : viewers) {
    if (seconds < point.seconds) {
      const double part = (seconds - before.seconds) / (point.seconds - before.seconds);
      return before.share + part * (point.share - before.share);
    }
    before = point;
  }
  return before.share;
}

FetchChoice FetchPlan::choose(std::span<const ClipOutlook> clips,
                              std::span<const double> throughputs, double roundTrip) const {
  Estimate estimate = estimateOf(throughputs, weights_.memory, weights_.spread);
  estimate.spread *= weights_.caution;
  const Link soon(estimate, roundTrip);
  estimate.spread *= weights_.evenness;
  const Outlook outlook{soon, Link(estimate, roundTrip)};
  FetchChoice choice{std::nullopt, 0, weights_.longestWait};
  double most = -std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < clips.size(); ++i) {
    if (clips[i].next.empty()) continue;
    // Nothing comes before the picture that somebody waits for.
    const bool isAwaited = i == 0 && clips[i].buffered <= 0;
    const Gain gain = gainOf(clips, i, outlook);
    const bool isWorthIt = gain.inAll > weights_.leastGain && gain.perSecond > most;
    if (!isWorthIt && !isAwaited) continue;
    most = isAwaited ? std::numeric_limits<double>::infinity() : gain.perSecond;
    choice = {i, gain.rendition, 0};
  }
  return choice;
}

FetchPlan::Gain FetchPlan::gainOf(std::span<const ClipOutlook> clips, std::size_t index,
                                  const Outlook& outlook) const {
  const Link& link = outlook.soon;
  const ClipOutlook& shown = clips[0];
  const ClipOutlook& clip = clips[index];
  const double staying = std::max(shareAt(shown.viewers, shown.position), 1e-6);
  const auto stillThere = [&](double later) {
    return shareAt(shown.viewers, shown.position + later) / staying;
  };
  const double at = clip.position + clip.buffered;
  const double share = index == 0 ? stillThere(clip.buffered) : shareAt(clip.viewers, at);
  // The swipe may come at any moment; each clip in between is watched for a while as well.
  const auto lateness = [&](double megabits, double delay) {
    if (index == 0) return link.lateness(megabits, clip.buffered - delay);
    const double between = 2.0 * static_cast<double>(index - 1);
    constexpr int kSteps = 12;
    double sum = 0;
    for (int step = 0; step < kSteps; ++step) {
      const double leaving = stillThere(step) - stillThere(step + 1);
      sum += leaving * link.lateness(megabits, step + 0.5 + between + clip.buffered - delay);
    }
    return sum;
  };
  const double lead = index == 0 ? clip.buffered : clip.buffered + 2.0 * static_cast<double>(index);
  const std::size_t rendition = renditionFor(clip, lead, share, outlook);
  const ChunkOffer& offer = clip.next[rendition];
  const double now = lateness(offer.megabits, 0);
  const double later = lateness(offer.megabits, weights_.delay);
  const double saved = share * kStallCost * weights_.hedge * (later - now);
  // Who waits may learn meanwhile that nobody is there to see it.
  const double leaves = 1 - stillThere(weights_.delay);
  const double learnt = index == 0 ? leaves : leaves * (1 - share);
  const double cost = kMegabitCost * offer.megabits;
  const double worth = share * (offer.megabitsPerSecond * clip.chunkSeconds + kStallCost * later);
  Gain gain;
  gain.rendition = rendition;
  if (worth <= cost) return gain;
  gain.inAll = saved - learnt * cost;
  gain.perSecond = gain.inAll / link.time(offer.megabits);
  return gain;
}

/// The rendition that is worth most over what is still watched of the clip, if it can be sustained.
std::size_t FetchPlan::renditionFor(const ClipOutlook& clip, double lead, double share,
                                    const Outlook& outlook) const {
  const double at = clip.position + clip.buffered;
  const double here = std::max(shareAt(clip.viewers, at), 1e-6);
  double watched = 0;
  for (int second = 0; second < 10; ++second) {
    watched += shareAt(clip.viewers, at + second * clip.chunkSeconds) / here;
  }
  std::size_t best = 0;
  double most = -std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < clip.next.size(); ++i) {
    const ChunkOffer& offer = clip.next[i];
    const double quality = offer.megabitsPerSecond;
    const double change = clip.lastQuality ? std::abs(quality - *clip.lastQuality) : 0;
    // The chunks behind this one, which may be a large or a small one.
    const double usual = quality * clip.chunkSeconds;
    const double behind = weights_.horizon - 1;
    const double late = std::max(outlook.soon.lateness(offer.megabits, lead),
                                 outlook.overall.lateness(offer.megabits + usual * behind,
                                                          lead + behind * clip.chunkSeconds));
    const double one = share * usual - kMegabitCost * offer.megabits;
    const double others = (watched - 1) * (share - kMegabitCost) * usual;
    const double value = one + others - share * weights_.steadiness * change -
                         share * kStallCost * weights_.sustain * late;
    if (value > most) best = i;
    most = std::max(most, value);
  }
  return best;
}

}  // namespace zaffo::network
