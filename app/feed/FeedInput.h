#pragma once

#include <functional>
#include <memory>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "feed/FeedView.h"

namespace zaffo::feed {

/// Turns what a person does into movements of the feed:
///   Down, PageDown, J, wheel down, drag up    the next page
///   Up, PageUp, K, wheel up, drag down        the previous page
///   Home, End                                 the first, the last page
///   Space                                     plays or pauses
///   Q, Escape, closing the window             ends the program
/// Thread: main.
class FeedInput {
 public:
  struct Actions {
    std::function<void()> togglePlaying;
    std::function<void()> resize;
    std::function<void()> quit;
  };

  FeedInput(std::shared_ptr<FeedView> view, Actions actions);

  void handle(const InputEvent& event);

 private:
  void pressKey(const std::string& key);
  void turnWheel(double notches);

  const std::shared_ptr<FeedView> view_;
  const Actions actions_;
  double wheel_ = 0;  // notches turned since the last page
};

}  // namespace zaffo::feed
