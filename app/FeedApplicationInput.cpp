// SPDX-License-Identifier: Apache-2.0

// What a person does to the feed, and sees of it.

#include <cstdio>

#include "FeedApplication.h"
#include "overlay/PoolRows.h"

namespace zaffo::feed {

namespace {

constexpr double kSeek = 5;                  // seconds
constexpr int kVolumeStep = 5;               // percent
constexpr int64_t kOneDrop = 1'000'000'000;  // what is let go at once comes a file at a time

}  // namespace

void FeedApplication::handle(const InputEvent& event) {
  switch (event.type) {
    case InputEvent::Type::Close:
      return loop_.quit();
    case InputEvent::Type::Resize:
      return fitFeedToWindow();
    case InputEvent::Type::Hide:
      return control_->setVisible(false);
    case InputEvent::Type::Show:
      return control_->setVisible(true);
    case InputEvent::Type::Drop:
      return addVideos(event.path);
    default:
      if (overlay_) overlay_->noteActivity();
      return input_->handle(event);
  }
}

void FeedApplication::perform(Action action) {
  switch (action) {
    case Action::NextPage:
      return scrollBy(1);
    case Action::PreviousPage:
      return scrollBy(-1);
    case Action::FirstPage:
      return scrollTo(0);
    case Action::LastPage:
      return scrollTo(view_->pageCount() - 1);
    case Action::TogglePlaying:
      return control_->togglePlaying();
    case Action::SeekForward:
      return seekBy(kSeek);
    case Action::SeekBack:
      return seekBy(-kSeek);
    case Action::ToggleMute:
      control_->toggleMute();
      return changeVolume(0);
    case Action::Louder:
      return changeVolume(kVolumeStep);
    case Action::Quieter:
      return changeVolume(-kVolumeStep);
    case Action::ToggleFullScreen:
      return window_->setFullScreen(!window_->isFullScreen());
    case Action::ToggleKeys:
      return overlay_ ? overlay_->toggleKeys() : void();
    case Action::TogglePool:
      return overlay_ ? overlay_->togglePool() : void();
    case Action::Leave:
      return leave();
    case Action::Quit:
      return loop_.quit();
    case Action::Scrub:
    case Action::AddVideos:
      return;  // they need a place or a file, and come by themselves
  }
}

void FeedApplication::leave() {
  if (overlay_ && overlay_->closePanel()) return;
  if (window_->isFullScreen()) return window_->setFullScreen(false);
  loop_.quit();
}

void FeedApplication::seekBy(double seconds) {
  control_->seekBy(seconds);
  if (overlay_) overlay_->noteSeek();
}

void FeedApplication::scrub(FeedInput::Phase phase, double x) {
  control_->scrub(OverlayView::fractionAt(x, window_->size()));
  if (phase == FeedInput::Phase::End) control_->endScrub();
  if (overlay_) overlay_->noteSeek();
}

void FeedApplication::changeVolume(int percent) {
  if (percent != 0) control_->changeVolume(percent);
  if (overlay_) overlay_->noteVolume();
}

void FeedApplication::addVideos(const std::string& path) {
  const auto found = collectVideos({path}, Folders::Deep);
  const auto* urls = std::get_if<URLs>(&found);
  if (!urls) return;
  readClipLists(*urls, [weakView = std::weak_ptr(view_), this](const Clips& clips) {
    if (!weakView.expired()) addPages(clips);
  });
}

void FeedApplication::addPages(const Clips& clips) {
  const int first = videos_.count();
  videos_.add(clips);
  view_->setPageCount(videos_.count());
  controller_->pagesAdded();
  const int64_t now = TimeSource::now();
  if (now - std::exchange(lastDrop_, now) > kOneDrop) view_->scrollToPage(first);
}

void FeedApplication::pageTurned(int page) {
  controller_->showPage(page);
  control_->pageChanged();
  window_->setTitle(nameOfPage(page) + " - zaffo-feed");
  if (overlay_) overlay_->noteActivity();
}

OverlayState FeedApplication::overlayState() const {
  OverlayState state;
  state.page = view_->page();
  state.pageCount = view_->pageCount();
  state.title = nameOfPage(state.page);
  state.position = control_->position();
  state.isScrubbing = control_->isScrubbing();
  state.volumePercent = control_->volumePercent();
  state.isMuted = control_->isMuted();
  return state;
}

/// The process's own figures are in files, which the main thread does not read.
void FeedApplication::readPool(const std::function<void(Overlay::Rows)>& answer) {
  if (const auto cell = controller_->currentCell()) cell->updateRecord();
  const auto& swipe = statistics_->swipes().back();
  PoolFigures figures;
  figures.decoding = recentTimes(TimedWork::Decoding);
  figures.drawing = recentTimes(TimedWork::Drawing);
  figures.players = manager_->debugDescription();
  figures.most = manager_->maxAllowedConcurrentPlayers();
  figures.framesShown = swipe->framesShown;
  figures.framesDropped = swipe->framesDropped;
  figures.longestTurn = static_cast<double>(swipe->longestBlock) / 1e6;
  const std::pair<int64_t, uint64_t> now{TimeSource::now(), window_->presentedPictures()};
  if (const auto before = std::exchange(poolRead_, now)) {
    const double seconds = static_cast<double>(now.first - before->first) / 1e9;
    figures.picturesPerSecond = static_cast<double>(now.second - before->second) / seconds;
  }
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), [answer,
                                                                              figures]() mutable {
    const auto process = ProcessFigures::read();
    figures.memory = static_cast<double>(process.residentBytes) / (1 << 20);
    figures.threads = process.threads;
    dispatch_async(dispatch_get_main_queue(), [answer, rows = poolRows(figures)] { answer(rows); });
  });
}

}  // namespace zaffo::feed
