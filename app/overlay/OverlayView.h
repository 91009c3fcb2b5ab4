// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "feed/FeedCell.h"
#include "overlay/OverlayTiming.h"
#include "text/Label.h"

namespace zaffo::feed {

/// What the overlay tells.
struct OverlayState {
  std::string title;
  int page = 0;  ///< from 0
  int pageCount = 1;
  std::optional<ClipPosition> position;
  bool isScrubbing = false;
  int volumePercent = 100;
  bool isMuted = false;
};

/// Shows over the picture what is played and how: below the title, the place in the feed and a bar;
/// in the middle whether it is paused or there is no picture yet; above the volume. Thread: main.
class OverlayView final : public UIView {
  struct Private {};

 public:
  OverlayView(Private, const Density& density);
  [[nodiscard]] static std::shared_ptr<OverlayView> create(const Density& density);

  void show(const OverlayState& state, const OverlayTiming::Look& look);

  /// Where the bar is in a window of this size, and where it can be taken hold of.
  [[nodiscard]] static CGRect barIn(CGSize window);
  [[nodiscard]] static bool isOnBar(CGPoint place, CGSize window);
  /// How much of the clip lies to the left of `x`.
  [[nodiscard]] static double fractionAt(double x, CGSize window);

 private:
  std::shared_ptr<UIView> add(const std::shared_ptr<UIView>& view);
  void drawShapes();
  void showTitle(const OverlayState& state, const OverlayTiming::Look& look);
  void showBar(const OverlayState& state, double opacity);
  void showMarks(const OverlayTiming::Look& look);
  void showVolume(const OverlayState& state, double opacity);

  const Density density_;
  double drawnAt_ = 0;
  const std::shared_ptr<UIView> shade_, track_, fill_, thumb_, pause_, ring_, pill_;
  const std::shared_ptr<Label> title_, place_, times_, volume_;
  std::vector<std::shared_ptr<UIView>> dots_;
};

/// "0:07", "1:02:03".
[[nodiscard]] std::string timeText(double seconds);

}  // namespace zaffo::feed
