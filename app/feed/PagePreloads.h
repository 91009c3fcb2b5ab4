// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Has the beginnings of pages fetched before a swipe leads to them, as far as they lie on the
/// network. Thread: main.
class PagePreloads {
 public:
  static constexpr double kSeconds = 3;

  using AddressOfPage = std::function<std::shared_ptr<const NSURL>(int page)>;

  /// `preloader` outlives it.
  PagePreloads(NetworkPreloader& preloader, AddressOfPage addressOfPage);
  ~PagePreloads();
  PagePreloads(const PagePreloads&) = delete;
  PagePreloads& operator=(const PagePreloads&) = delete;

  /// Fetches these pages, most wanted first, besides those asked for before; each once until it is
  /// left.
  void fetch(const std::vector<int>& pages);
  /// Leaves all others: what is still being fetched of them ends.
  void keepOnly(const std::vector<int>& pages);

 private:
  NetworkPreloader& preloader_;
  const AddressOfPage addressOfPage_;
  std::map<int, std::shared_ptr<const NSURL>> fetched_;  // by page, until it is left
};

}  // namespace zaffo::feed
