// SPDX-License-Identifier: Apache-2.0
#include "Simulation.h"

#include <algorithm>
#include <cmath>

namespace zaffo::simulation {

namespace {

using network::ClipOutlook;
using network::FetchChoice;

constexpr double kMoment = 1e-9;  // seconds that rounding may lose

class Run {
 public:
  Run(const std::vector<Clip>& clips, const std::vector<double>& leaves,
      const std::vector<double>& throughputs)
      : clips_(clips), leaves_(leaves), throughputs_(throughputs), held_(clips.size()) {}

  Outcome play(const Policy& policy) {
    while (clip_ < clips_.size()) {
      const FetchChoice choice = policy.choose(outlooks(), past_);
      if (choice.clip) {
        fetch(clip_ + *choice.clip, choice.rendition);
      } else {
        wait(std::max(choice.waitSeconds, 0.01));
      }
    }
    settle();
    return outcome_;
  }

 private:
  /// Renditions of the chunks that were fetched, in order.
  using Held = std::vector<std::size_t>;

  [[nodiscard]] std::vector<ClipOutlook> outlooks() const {
    std::vector<ClipOutlook> seen;
    const std::size_t end = std::min(clips_.size(), clip_ + 1 + kClipsSeenAhead);
    for (std::size_t i = clip_; i < end; ++i) {
      ClipOutlook outlook;
      outlook.position = i == clip_ ? position_ : 0;
      outlook.buffered = static_cast<double>(held_[i].size()) - outlook.position;
      outlook.viewers = clips_[i].viewers;
      if (!held_[i].empty()) outlook.lastQuality = kQualities[held_[i].back()];
      if (held_[i].size() < clips_[i].megabits.size()) {
        const auto& sizes = clips_[i].megabits[held_[i].size()];
        for (std::size_t r = 0; r < sizes.size(); ++r) {
          outlook.next.push_back({kQualities[r], sizes[r]});
        }
      }
      seen.push_back(std::move(outlook));
    }
    return seen;
  }

  void fetch(std::size_t clip, std::size_t rendition) {
    const double megabits = clips_[clip].megabits[held_[clip].size()][rendition];
    const double begin = now_ + kRoundTrip;
    const double end = endOf(begin, megabits);
    past_.push_back(megabits / (end - begin));
    outcome_.fetched += megabits;
    pass(end - now_);
    held_[clip].push_back(rendition);
  }

  /// When so much that begins to come then is here.
  [[nodiscard]] double endOf(double time, double megabits) const {
    for (;;) {
      const double next = std::floor(time + kMoment) + 1;
      const auto second = static_cast<std::size_t>(next - 1) % throughputs_.size();
      const double most = throughputs_[second] * (next - time);
      if (megabits <= most) return time + megabits / throughputs_[second];
      megabits -= most;
      time = next;
    }
  }

  /// Lets the time pass that a policy waits, up to the next swipe.
  void wait(double seconds) {
    const std::size_t before = clip_;
    for (double left = seconds; left > kMoment && clip_ == before;) left -= step(left);
  }

  void pass(double seconds) {
    while (seconds > kMoment) seconds -= step(seconds);
  }

  /// Plays or stalls for at most so long, up to the next thing that happens. How long it was.
  double step(double most) {
    if (clip_ >= clips_.size()) return most;
    const double playable =
        std::min(static_cast<double>(held_[clip_].size()), leaves_[clip_]) - position_;
    const bool stalls = playable <= kMoment && position_ + kMoment < leaves_[clip_];
    const double passed = stalls ? most : std::min(most, std::max(playable, 0.0));
    now_ += passed;
    if (stalls) {
      outcome_.stalled += passed;
    } else {
      position_ += passed;
    }
    if (position_ + kMoment >= leaves_[clip_]) swipe();
    return passed;
  }

  void swipe() {
    const auto watched = static_cast<std::size_t>(std::ceil(position_ - kMoment));
    const Held& held = held_[clip_];
    for (std::size_t i = 0; i < held.size() && i < watched; ++i) {
      outcome_.quality += kQualities[held[i]];
      if (i > 0) outcome_.changes += std::abs(kQualities[held[i]] - kQualities[held[i - 1]]);
      seen_ += clips_[clip_].megabits[i][held[i]];
    }
    ++clip_;
    position_ = 0;
  }

  void settle() {
    outcome_.wasted = outcome_.fetched - seen_;
    outcome_.score = outcome_.quality - outcome_.changes -
                     network::FetchPlan::kStallCost * outcome_.stalled -
                     network::FetchPlan::kMegabitCost * outcome_.fetched;
  }

  const std::vector<Clip>& clips_;
  const std::vector<double>& leaves_;
  const std::vector<double>& throughputs_;
  std::vector<Held> held_;
  std::vector<double> past_;
  std::size_t clip_ = 0;
  double position_ = 0, now_ = 0, seen_ = 0;
  Outcome outcome_;
};

constexpr FetchChoice kWaitAWhile{std::nullopt, 0, 0.25};

}  // namespace

Policy plannedPolicy(const network::FetchPlan& plan) {
  return {"planned",
          [plan](auto clips, auto past) { return plan.choose(clips, past, kRoundTrip); }};
}

Policy fillingPolicy() {
  return {"filling", [](auto clips, auto) {
            constexpr double kMegabits = 6.4;   // 800 kB
            constexpr double kOfASecond = 0.8;  // on average, in the lowest rendition
            for (std::size_t i = 0; i < clips.size(); ++i) {
              const bool isFull = i > 0 && clips[i].buffered * kOfASecond >= kMegabits;
              if (!clips[i].next.empty() && !isFull) return FetchChoice{i, 0, 0};
            }
            return kWaitAWhile;
          }};
}

Policy fixedPolicy() {
  return {"fixed", [](auto clips, auto) {
            constexpr double kSeconds = 4;
            constexpr std::size_t kMiddle = 1;
            for (std::size_t i = 0; i < clips.size(); ++i) {
              if (clips[i].next.empty() || clips[i].buffered >= kSeconds) continue;
              return FetchChoice{i, kMiddle, 0};
            }
            return kWaitAWhile;
          }};
}

Outcome& Outcome::operator+=(const Outcome& other) {
  score += other.score;
  quality += other.quality;
  changes += other.changes;
  stalled += other.stalled;
  fetched += other.fetched;
  wasted += other.wasted;
  return *this;
}

Outcome Outcome::dividedBy(int runs) const {
  const double n = runs;
  return {score / n, quality / n, changes / n, stalled / n, fetched / n, wasted / n};
}

Outcome simulate(const Policy& policy, const std::vector<Clip>& clips,
                 const std::vector<double>& leaves, const std::vector<double>& throughputs) {
  return Run(clips, leaves, throughputs).play(policy);
}

Outcome average(const Policy& policy, const LinkClass& kind, int viewers, unsigned seed) {
  Outcome sum;
  for (int viewer = 0; viewer < viewers; ++viewer) {
    std::mt19937 random(seed + static_cast<unsigned>(viewer));
    const auto clips = makeClips(random);
    const auto leaves = makeViewer(clips, random);
    sum += simulate(policy, clips, leaves, makeLink(kind, random));
  }
  return sum.dividedBy(viewers);
}

}  // namespace zaffo::simulation
