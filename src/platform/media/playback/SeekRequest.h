#pragma once

#include <functional>
#include <utility>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// A request to go to a place: where to, how far from it will do, and who is told how it went. It
/// ends once, whatever happens: found, or else not, when it fails, when another supersedes it, or
/// when it is let go of. Thread: one at a time.
class SeekRequest {
 public:
  using Completion = std::function<void(bool finished)>;

  /// To the frame of `target`; a frame within [target - before, target + after] will do as well.
  /// The sign of a tolerance does not matter; one that is no number is none, unless it is positive
  /// infinity. `completion` may be empty.
  SeekRequest(CMTime target, CMTime before, CMTime after, Completion completion);
  ~SeekRequest() { end(false); }
  SeekRequest(const SeekRequest&) = delete;
  SeekRequest& operator=(const SeekRequest&) = delete;

  [[nodiscard]] CMTime target() const { return target_; }
  [[nodiscard]] CMTime earliest() const { return earliest_; }
  [[nodiscard]] CMTime latest() const { return latest_; }

  /// The position that a frame presented at `presentation` is for: its own time if that will do,
  /// the target if not, as for a frame that lasts until then or where there is none (invalid).
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
