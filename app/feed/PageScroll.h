// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace zaffo::feed {

/// The position of a column of pages of equal height: an offset in points from the top of the first
/// page, and the page it rests on or is moving to. A drag moves it directly; on release, and on a
/// key, it glides to a page as if a spring pulled it there: from the speed that it has, without
/// going beyond, and along the same way however often it is asked where it is. It is told the time,
/// in nanoseconds, and knows nothing of views. Thread: one.
class PageScroll {
 public:
  /// Sets how many pages there are and how high each is, keeping the page.
  void setPages(int count, double height);
  /// Rests on `page`, or the nearest one that exists.
  void setPage(int page);
  /// More pages at the end, or fewer; a movement goes on.
  void setCount(int count);

  /// Points between the top of the first page and the top of what is shown.
  [[nodiscard]] double offset() const { return offset_; }
  /// The page it rests on or glides to; while dragged, the one it left.
  [[nodiscard]] int page() const { return page_; }
  /// Whether it is being dragged or gliding.
  [[nodiscard]] bool isMoving() const { return phase_ != Phase::Resting; }
  [[nodiscard]] bool isGliding() const { return phase_ == Phase::Gliding; }
  [[nodiscard]] bool isDragging() const { return phase_ == Phase::Dragging; }

  /// Glides to `page`, or the nearest one that exists; a distant one slides in from next door.
  void glideTo(int page, int64_t now);

  /// A finger or button went down at `y` points from the top of the view.
  void beginDrag(double y, int64_t now);
  void drag(double y, int64_t now);
  /// Lets go: glides to the next page in the direction of a flick, or of more than half a page.
  void endDrag(int64_t now);

  /// Advances a glide to `now`.
  void advance(int64_t now);

 private:
  /*  Resting --glideTo--> Gliding --is there--> Resting
         |                  |   ^
         +---beginDrag------+   |endDrag
         v                      |
         Dragging --------------+                                   */
  enum class Phase { Resting, Gliding, Dragging };

  [[nodiscard]] int clamped(int page) const;
  [[nodiscard]] double topOf(int page) const { return page * height_; }
  [[nodiscard]] double flickSpeed(int64_t now) const;
  void glideFrom(double speed, int64_t now);
  [[nodiscard]] double glideTime(int64_t now) const;
  [[nodiscard]] double glideSpeedAt(int64_t now) const;

  int count_ = 0;
  double height_ = 1;
  Phase phase_ = Phase::Resting;
  int page_ = 0;
  double offset_ = 0;

  // A glide: where it began, from its target, and how fast, in points and seconds.
  double glideDistance_ = 0, glideSpeed_ = 0;
  int64_t glideStart_ = 0;

  double dragStartOffset_ = 0;
  double dragStartY_ = 0;
  struct Touch {
    double y = 0;
    int64_t time = 0;
  };
  std::vector<Touch> touches_;  // of the drag, as long ago as a flick remembers
};

}  // namespace zaffo::feed
