// SPDX-License-Identifier: Apache-2.0

// zaffo-simulate [VIEWERS [SEED]]: what preloading is worth over a model of a feed on a network.
#include <cstdio>
#include <cstdlib>

#include "Simulation.h"

int main(int count, char** arguments) {
  using namespace zaffo::simulation;
  const int viewers = count > 1 ? std::atoi(arguments[1]) : 50;
  const unsigned seed = count > 2 ? static_cast<unsigned>(std::atoi(arguments[2])) : 1;
  if (viewers < 1) {
    std::fprintf(stderr, "usage: zaffo-simulate [VIEWERS [SEED]]\n");
    return 2;
  }
  std::printf("%d viewers of each class, seed %u; averages of a viewer\n\n", viewers, seed);
  std::printf("%-8s %-9s %8s %8s %8s %10s %10s %10s\n", "link", "policy", "score", "quality",
              "changes", "stalled s", "fetched Mb", "wasted Mb");
  for (const LinkClass& kind : linkClasses()) {
    for (const Policy& policy : {plannedPolicy(), fillingPolicy(), fixedPolicy()}) {
      const Outcome out = average(policy, kind, viewers, seed);
      std::printf("%-8s %-9s %8.1f %8.1f %8.1f %10.2f %10.1f %10.1f\n", kind.name.c_str(),
                  policy.name.c_str(), out.score, out.quality, out.changes, out.stalled,
                  out.fetched, out.wasted);
    }
  }
  return 0;
}
