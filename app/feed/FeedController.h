// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "feed/FeedCell.h"
#include "feed/FeedView.h"
#include "feed/PagePreloads.h"
#include "figures/Statistics.h"

namespace zaffo::feed {

/// Decides which pages exist and which of them hold a player. The page in view is loaded first, on
/// its own; when it plays or has failed, its neighbours follow, as many as the pool's bounds allow,
/// and the beginnings of the next two are fetched from the network, whatever the pool holds.
/// Pages no longer needed give their players back before others ask for one, so that the pool never
/// has to take one that is in use. Thread: main.
class FeedController : public std::enable_shared_from_this<FeedController> {
  struct Private {};

 public:
  using CellFactory = std::function<std::shared_ptr<FeedCell>(int page)>;

  /// What it works with; all but the preloads are required.
  struct Parts {
    std::shared_ptr<PlayerManager> manager;
    std::shared_ptr<FeedView> view;
    std::shared_ptr<Statistics> statistics;
    std::function<std::string(int page)> nameOfPage;
    CellFactory cellFactory;
    std::shared_ptr<PagePreloads> preloads;
  };
  FeedController(Private, Parts parts);
  [[nodiscard]] static std::shared_ptr<FeedController> create(Parts parts);

  /// Shows the page the view is on, which is the first.
  void start();
  /// Gives every player back and completes the last record.
  void stop();

  /// The page in view; null before start() and after stop().
  [[nodiscard]] std::shared_ptr<FeedCell> currentCell() const;

  /// The view moves to another page.
  void showPage(int page);
  /// The view has more pages at the end: those near may be loaded.
  void pagesAdded() { updateSoon(); }
  void scrollingEnded();
  void didPresent(int64_t hostNanoseconds);

  void setVolume(float volume);
  /// Holds the page in view, and those that will be, or lets go.
  void setHeld(bool held);
  void setMainThreadIsIdle(bool isIdle);
  void setBounds(long most, long mostWhileIdle);
  void setUseFastPlayer(bool use);
  /// The pool has dropped players on its own, for instance after a reset of the media services.
  void poolChanged();

 private:
  [[nodiscard]] long capacity() const;
  [[nodiscard]] std::vector<int> wantedPages(long capacity) const;
  [[nodiscard]] std::shared_ptr<FeedCell> cellAt(int page);
  void update();
  void updateSoon();
  void makeRoom(long capacity);
  void loadNeighbours();
  [[nodiscard]] std::vector<int> pagesAhead() const;
  void dropFarCells();

  const Parts parts_;
  std::map<int, std::shared_ptr<FeedCell>> cells_;
  int current_ = -1;
  bool forwards_ = true;
  float volume_ = 1;
  bool isHeld_ = false;
};

}  // namespace zaffo::feed
