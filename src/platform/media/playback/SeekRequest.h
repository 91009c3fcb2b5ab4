// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <utility>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// A request to seek: where to, how far from there will do, and whom to tell how it went. It ends
/// exactly once: finished when the frame was found, or else not finished, because there is no such
/// frame, because a newer seek superseded it, or because it was destroyed. Thread: one at a time.
class SeekRequest {
 public:
  using Completion = std::function<void(bool finished)>;

  /// To the frame shown at `target`, or to any frame within [target - before, target + after]. The
  /// sign of a tolerance does not matter; of those that are not numeric, positive infinity is
  /// without limit and all others are zero. `completion` may be empty.
  SeekRequest(CMTime target, CMTime before, CMTime after, Completion completion);
  ~SeekRequest() { end(false); }
  SeekRequest(const SeekRequest&) = delete;
  SeekRequest& operator=(const SeekRequest&) = delete;

  [[nodiscard]] CMTime target() const { return target_; }
  [[nodiscard]] CMTime earliest() const { return earliest_; }
  [[nodiscard]] CMTime latest() const { return latest_; }

  /// Where playback stands with the frame presented at `presentation` on show: at the frame's own
  /// time if that is near enough, otherwise at the target, as with a frame that began earlier and
  /// lasts until then. `presentation` is invalid when there is no picture.
  [[nodiscard]] CMTime positionWith(CMTime presentation) const;

  /// Calls the completion, unless it was called before.
  void end(bool finished) {
    if (const auto completion = std::exchange(completion_, nullptr)) completion(finished);
  }

 private:
  const CMTime target_, earliest_, latest_;
  Completion completion_;
};

}  // namespace zaffo::media
