// SPDX-License-Identifier: Apache-2.0
#include "feed/FeedController.h"

#include <algorithm>

#include "feed/LoadPlan.h"

namespace zaffo::feed {

namespace {

long activeBound(bool isIdle, long most, long mostWhileIdle) {
  return isIdle ? std::min(most, mostWhileIdle) : most;
}

bool contains(const std::vector<int>& pages, int page) {
  return std::find(pages.begin(), pages.end(), page) != pages.end();
}

}  // namespace

FeedController::FeedController(Private, Parts parts) : parts_(std::move(parts)) {}

std::shared_ptr<FeedController> FeedController::create(Parts parts) {
  return std::make_shared<FeedController>(Private{}, std::move(parts));
}

void FeedController::start() {
  showPage(parts_.view->page());
}

void FeedController::stop() {
  if (const auto cell = currentCell()) cell->resignCurrent();
  current_ = -1;
  if (parts_.preloads) parts_.preloads->keepOnly({});
  for (const auto& [page, cell] : cells_) {
    cell->unload();
    parts_.view->removePage(page);
  }
  cells_.clear();
}

std::shared_ptr<FeedCell> FeedController::currentCell() const {
  const auto found = cells_.find(current_);
  return found == cells_.end() ? nullptr : found->second;
}

std::shared_ptr<FeedCell> FeedController::cellAt(int page) {
  auto& cell = cells_[page];
  if (!cell) {
    cell = parts_.cellFactory(page);
    cell->setSettledHandler([weakSelf = weak_from_this()] {
      if (const auto self = weakSelf.lock()) self->updateSoon();
    });
    parts_.view->placePage(page, cell->view());
  }
  return cell;
}

void FeedController::showPage(int page) {
  if (page == current_) return;
  const auto swipe =
      parts_.statistics->beginSwipe(parts_.nameOfPage(page), page + 1, TimeSource::now());
  if (const auto old = currentCell()) old->resignCurrent();
  forwards_ = page > current_;
  current_ = page;
  makeRoom(capacity());
  // What is fetched of the page itself its player will read.
  if (parts_.preloads) parts_.preloads->keepOnly(pagesAhead());
  const auto cell = cellAt(page);
  cell->setHeld(isHeld_);
  cell->becomeCurrent(swipe, volume_);
  update();
}

std::vector<int> FeedController::wantedPages(long capacity) const {
  // The page in view asks even a pool that may hold nothing, and shows the answer.
  const auto bound = static_cast<int>(std::clamp(capacity, 1L, 64L));
  return pagesToLoad(current_, parts_.view->pageCount(), forwards_, bound);
}

void FeedController::makeRoom(long capacity) {
  const auto wanted = wantedPages(capacity);
  for (const auto& [page, cell] : cells_) {
    if (!contains(wanted, page)) cell->unload();
  }
}

void FeedController::updateSoon() {
  dispatch_async(dispatch_get_main_queue(), [weakSelf = weak_from_this()] {
    if (const auto self = weakSelf.lock()) self->update();
  });
}

void FeedController::update() {
  if (current_ < 0) return;
  makeRoom(capacity());
  dropFarCells();
  const auto cell = cellAt(current_);
  cell->load();
  if (cell->isSettled()) loadNeighbours();
}

/// The page in view and those that are worth fetching.
std::vector<int> FeedController::pagesAhead() const {
  auto pages = pagesToPreload(current_, parts_.view->pageCount(), forwards_);
  pages.insert(pages.begin(), current_);
  return pages;
}

void FeedController::loadNeighbours() {
  if (parts_.preloads) {
    parts_.preloads->fetch(pagesToPreload(current_, parts_.view->pageCount(), forwards_));
  }
  for (const int page : wantedPages(capacity())) cellAt(page)->load();
  for (int page = 0; page < parts_.view->pageCount(); ++page) {
    if (isNear(page, current_)) cellAt(page)->loadThumbnail();
  }
}

void FeedController::dropFarCells() {
  for (auto entry = cells_.begin(); entry != cells_.end();) {
    if (isNear(entry->first, current_)) {
      ++entry;
      continue;
    }
    entry->second->unload();
    parts_.view->removePage(entry->first);
    entry = cells_.erase(entry);
  }
}

void FeedController::scrollingEnded() {
  for (const auto& [page, cell] : cells_) cell->scrollingEnded();
}

void FeedController::didPresent(int64_t hostNanoseconds) {
  for (const auto& [page, cell] : cells_) cell->didPresent(hostNanoseconds);
}

void FeedController::setVolume(float volume) {
  volume_ = volume;
  if (const auto cell = currentCell()) cell->setVolume(volume);
}

void FeedController::setHeld(bool held) {
  isHeld_ = held;
  if (const auto cell = currentCell()) cell->setHeld(held);
}

long FeedController::capacity() const {
  const auto& manager = *parts_.manager;
  return activeBound(manager.mainThreadIsIdle(), manager.maxAllowedConcurrentPlayers(),
                     manager.maxPlayersAtIdleState());
}

void FeedController::setMainThreadIsIdle(bool isIdle) {
  auto& manager = *parts_.manager;
  makeRoom(
      activeBound(isIdle, manager.maxAllowedConcurrentPlayers(), manager.maxPlayersAtIdleState()));
  manager.setMainThreadIsIdle(isIdle);
  poolChanged();
}

void FeedController::setBounds(long most, long mostWhileIdle) {
  auto& manager = *parts_.manager;
  makeRoom(activeBound(manager.mainThreadIsIdle(), most, mostWhileIdle));
  manager.setMaxAllowedConcurrentPlayers(most);
  manager.setMaxPlayersAtIdleState(mostWhileIdle);
  poolChanged();
}

void FeedController::setUseFastPlayer(bool use) {
  parts_.manager->setUseFastPlayer(use);
  poolChanged();
}

void FeedController::poolChanged() {
  for (const auto& [page, cell] : cells_) cell->checkPlayer();
  update();
}

}  // namespace zaffo::feed
