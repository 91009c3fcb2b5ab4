// SPDX-License-Identifier: Apache-2.0
#include "FeedModel.h"

#include <algorithm>
#include <cmath>

namespace zaffo::simulation {

namespace {

constexpr std::array<double, 3> kMeanMegabits{0.8, 1.28, 1.92};
constexpr double kSizeSpread = 0.47;  // about 50 %
constexpr double kLeastThroughput = 0.2;
constexpr int kTraceSeconds = 1200;

struct ClipFigures {
  int seconds;
  std::vector<network::ViewerShare> viewers;
};

const std::vector<ClipFigures>& figures() {
  static const std::vector<ClipFigures> all{
      {17, {{1, .98}, {3, .79}, {5, .60}, {8.5, .43}, {10, .39}, {17, .21}}},
      {26, {{1, .96}, {3, .86}, {5, .78}, {10, .59}, {13, .45}, {26, .25}}},
      {37, {{1, .94}, {3, .61}, {5, .55}, {10, .47}, {18.5, .41}, {37, .29}}},
      {40, {{1, .96}, {3, .74}, {5, .59}, {10, .38}, {20, .31}, {40, .24}}},
      {47, {{1, .94}, {3, .61}, {5, .42}, {10, .19}, {23.5, .11}, {47, .06}}},
      {6, {{1, .95}, {3, .74}, {5, .57}, {6, .43}}},
      {125, {{1, .82}, {3, .33}, {5, .25}, {10, .14}, {62.5, .04}, {125, .01}}},
  };
  return all;
}

}  // namespace

std::vector<Clip> makeClips(std::mt19937& random) {
  std::normal_distribution<double> normal;
  std::vector<Clip> clips;
  for (const ClipFigures& figure : figures()) {
    Clip clip{figure.seconds, figure.viewers, {}};
    for (int chunk = 0; chunk < figure.seconds; ++chunk) {
      // A scene that is hard to compress is so in every rendition.
      const double factor = std::exp(kSizeSpread * normal(random) - kSizeSpread * kSizeSpread / 2);
      auto& sizes = clip.megabits.emplace_back();
      std::transform(kMeanMegabits.begin(), kMeanMegabits.end(), sizes.begin(),
                     [&](double mean) { return mean * factor; });
    }
    clips.push_back(std::move(clip));
  }
  return clips;
}

std::vector<double> makeViewer(const std::vector<Clip>& clips, std::mt19937& random) {
  std::uniform_real_distribution<double> uniform;
  std::vector<double> leaves;
  for (const Clip& clip : clips) {
    const double rank = uniform(random);
    network::ViewerShare before;
    double time = clip.seconds;
    for (const network::ViewerShare& point : clip.viewers) {
      if (point.share <= rank) {
        const double part = (before.share - rank) / (before.share - point.share);
        time = before.seconds + part * (point.seconds - before.seconds);
        break;
      }
      before = point;
    }
    leaves.push_back(time);
  }
  return leaves;
}

const std::array<LinkClass, 4>& linkClasses() {
  static const std::array<LinkClass, 4> classes{{{"high", 3.57, .71, .06, false},
                                                 {"medium", 1.61, .56, .26, false},
                                                 {"low", 1.20, .43, .23, false},
                                                 {"mixed", 1.59, .63, .49, true}}};
  return classes;
}

std::vector<double> makeLink(const LinkClass& kind, std::mt19937& random) {
  constexpr double kLeastMean = 1.03;
  constexpr double kMostMean = 3.58;
  constexpr double kSkew = 2.4;  // which makes the mean of the means 1.59
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  const double part = std::pow(uniform(random), kSkew);
  const double mean =
      kind.isMixed ? kLeastMean * std::pow(kMostMean / kLeastMean, part) : kind.mean;
  const double fresh = std::sqrt(1 - kind.correlation * kind.correlation);
  std::vector<double> trace;
  double state = normal(random);
  for (int second = 0; second < kTraceSeconds; ++second) {
    const double value = mean * std::exp(kind.spread * state - kind.spread * kind.spread / 2);
    trace.push_back(std::max(value, kLeastThroughput));
    state = kind.correlation * state + fresh * normal(random);
  }
  return trace;
}

}  // namespace zaffo::simulation
