// SPDX-License-Identifier: Apache-2.0
#include "feed/LoadPlan.h"

#include <array>
#include <cstdlib>

namespace zaffo::feed {

namespace {

constexpr std::array kWantedOffsets{0, 1, -1, 2};
constexpr int kNear = 3;

}  // namespace

std::vector<int> pagesToLoad(int current, int count, bool forwards, int capacity) {
  std::vector<int> pages;
  for (const int offset : kWantedOffsets) {
    if (static_cast<int>(pages.size()) >= capacity) break;
    const int page = current + (forwards ? offset : -offset);
    if (page >= 0 && page < count) pages.push_back(page);
  }
  return pages;
}

std::vector<int> pagesToPreload(int current, int count, bool forwards) {
  std::vector<int> pages;
  for (const int offset : {1, 2}) {
    const int page = current + (forwards ? offset : -offset);
    if (page >= 0 && page < count) pages.push_back(page);
  }
  return pages;
}

bool isNear(int page, int current) {
  return std::abs(page - current) <= kNear;
}

}  // namespace zaffo::feed
