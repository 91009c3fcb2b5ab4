// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace zaffo::media {

/// What a reset of the media services means inside the platform: everything that plays fails, and
/// players made before it are of no use. Thread: any.
class MediaServices {
 public:
  [[nodiscard]] static MediaServices& shared();

  MediaServices();
  ~MediaServices();
  MediaServices(const MediaServices&) = delete;
  MediaServices& operator=(const MediaServices&) = delete;

  /// Counts the resets. What remembers another generation than the present one was made before a
  /// reset.
  [[nodiscard]] uint64_t generation() const;

  /// Calls `wasReset` at each reset, on the resetting thread (the main thread) with no lock held,
  /// until the token is dropped. A token that is dropped during a reset on that thread is not
  /// called any more.
  [[nodiscard]] std::shared_ptr<void> observeReset(std::function<void()> wasReset);

  /// Begins the next generation and tells the observers, in the order in which they came.
  void reset();

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace zaffo::media
