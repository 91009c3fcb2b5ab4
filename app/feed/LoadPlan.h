// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace zaffo::feed {

/// Which pages are worth a player, most wanted first: the current one, the next, the previous and
/// the one after the next, as far as they exist and `capacity` reaches. After a move towards
/// earlier pages the order is mirrored.
[[nodiscard]] std::vector<int> pagesToLoad(int current, int count, bool forwards, int capacity);

/// Which pages a swipe or two on lead to, the nearer first: their beginnings are worth fetching.
[[nodiscard]] std::vector<int> pagesToPreload(int current, int count, bool forwards);

/// Whether a page is near enough to the current one to exist as a view with its thumbnail.
[[nodiscard]] bool isNear(int page, int current);

}  // namespace zaffo::feed
