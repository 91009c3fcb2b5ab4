#pragma once

#include <cstdint>

namespace zaffo::feed {

/// The position of a column of pages of equal height: an offset in points from the top of the first
/// page, and the page it rests on or is moving to. A drag moves it directly; on release, and on a
/// key, it glides to a page and stops there, without inertia. It is told the time, in nanoseconds,
/// and knows nothing of views. Thread: one.
class PageScroll {
 public:
  /// Sets how many pages there are and how high each is, keeping the page.
  void setPages(int count, double height);

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
  /*  Resting --glideTo--> Gliding --time is up--> Resting
         |                  |   ^
         +---beginDrag------+   |endDrag
         v                      |
         Dragging --------------+                                   */
  enum class Phase { Resting, Gliding, Dragging };

  [[nodiscard]] int clamped(int page) const;
  [[nodiscard]] double topOf(int page) const { return page * height_; }
  [[nodiscard]] double flickSpeed(int64_t now) const;

  int count_ = 0;
  double height_ = 1;
  Phase phase_ = Phase::Resting;
  int page_ = 0;
  double offset_ = 0;

  double glideFrom_ = 0;
  int64_t glideStart_ = 0;

  double dragStartOffset_ = 0;
  double dragStartY_ = 0;
  double speed_ = 0;  // points per second, positive towards later pages
  double lastY_ = 0;
  int64_t lastMove_ = 0;
};

}  // namespace zaffo::feed
