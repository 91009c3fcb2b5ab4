#pragma once

#include <cstdint>
#include <utility>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// How the time of a renderer's pictures goes by: notices when it goes back, and when a picture is
/// long in coming. Told all times, those of the host in nanoseconds (TimeSource). Thread: one at a
/// time.
class RendererPace {
 public:
  /// After so long without a picture one that is late is better than none.
  static constexpr int64_t kOverdueNanoseconds = 100'000'000;

  /// Other samples are shown from now on.
  void begin(int64_t host) {
    lastTime_ = kCMTimeNegativeInfinity;
    lastPicture_ = host;
  }
  /// The media is at `time`. Whether it was further on when this was told last.
  [[nodiscard]] bool goesBackTo(CMTime time) { return std::exchange(lastTime_, time) > time; }
  /// A picture was given.
  void notePicture(int64_t host) { lastPicture_ = host; }

  [[nodiscard]] bool isOverdue(int64_t host) const { return host >= overdueAt(); }
  /// When the next picture is overdue.
  [[nodiscard]] int64_t overdueAt() const { return lastPicture_ + kOverdueNanoseconds; }

 private:
  CMTime lastTime_ = kCMTimeNegativeInfinity;
  int64_t lastPicture_ = 0;
};

}  // namespace zaffo::media
