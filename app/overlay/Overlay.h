// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "overlay/OverlayTiming.h"
#include "overlay/OverlayView.h"
#include "overlay/Panel.h"

namespace zaffo::feed {

/// All that is shown over the feed: the overlay, the keys and the pool. While nothing of it is seen
/// it has no timer and draws nothing. Thread: main.
class Overlay : public std::enable_shared_from_this<Overlay> {
  struct Private {};

 public:
  using Rows = std::vector<Panel::Row>;
  struct Parts {
    Density density;
    std::function<OverlayState()> state;
    /// What is known about the pool; answers on the main thread, later.
    std::function<void(std::function<void(Rows)>)> readPool;
  };

  Overlay(Private, Parts parts);
  [[nodiscard]] static std::shared_ptr<Overlay> create(Parts parts);
  ~Overlay();

  [[nodiscard]] const std::shared_ptr<UIView>& view() const { return view_; }
  void setSize(CGSize size);

  void noteActivity();
  void noteSeek();
  void noteVolume();
  /// What may have changed at any time; costs nothing when it has not.
  void update(bool isPaused, bool isWaiting);
  /// A picture was put on screen: the clip is somewhere else by now.
  void pictureShown();

  void toggleKeys();
  void togglePool();
  /// Whether there was something to close.
  bool closePanel();

 private:
  void togglePanel(std::shared_ptr<Panel> panel);
  void refresh();
  void schedule();
  void readPoolSoon(int64_t nanoseconds);

  const Parts parts_;
  const std::shared_ptr<UIView> view_ = UIView::create();
  const std::shared_ptr<OverlayView> overlay_;
  const std::shared_ptr<Panel> keys_, pool_;
  std::shared_ptr<Panel> open_;
  OverlayTiming timing_;
  OverlayTiming::Look shown_;
  DispatchTimerPtr timer_, poolTimer_;
};

/// The bindings as rows.
[[nodiscard]] Overlay::Rows keyRows();

}  // namespace zaffo::feed
