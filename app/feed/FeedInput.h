// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "feed/Bindings.h"
#include "feed/FeedView.h"

namespace zaffo::feed {

/// Turns keys, the wheel, clicks and drags into actions, as the bindings say. Pages follow a drag,
/// and so does the video when the drag began on the bar. Thread: main.
class FeedInput {
 public:
  enum class Phase { Begin, Move, End };
  struct Actions {
    std::function<void(Action)> perform;  ///< all but Scrub and AddVideos
    std::function<bool(CGPoint)> isOnBar;
    /// A drag on the bar, at `x` points from the left of the window.
    std::function<void(Phase, double x)> scrub;
  };

  FeedInput(std::shared_ptr<FeedView> view, Actions actions);

  /// Events of the window as such are somebody else's.
  void handle(const InputEvent& event);

 private:
  struct Press {
    CGPoint place;
    int64_t time = 0;
    bool isClick = true;  ///< so far: it has not moved, and stopped no glide
    bool isOnBar = false;
  };

  void perform(std::string_view trigger, bool isRepeated = false);
  void pressKey(const InputEvent& event);
  void turnWheel(const InputEvent& event);
  void pressPointer(CGPoint place);
  void movePointer(CGPoint place);
  void releasePointer(CGPoint place);
  void click(CGPoint place);

  const std::shared_ptr<FeedView> view_;
  const Actions actions_;
  double wheel_ = 0;  // notches turned since the last page, or step of the volume
  bool wheelHadControl_ = false;
  std::optional<Press> press_;
  std::optional<Press> lastClick_;
};

}  // namespace zaffo::feed
