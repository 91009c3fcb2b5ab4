// SPDX-License-Identifier: Apache-2.0

// What a script can do to the feed.

#include <cstdio>

#include "FeedApplication.h"

namespace zaffo::feed {

void FeedApplication::scrollBy(int pages) {
  view_->scrollToPage(view_->page() + pages);
}

void FeedApplication::scrollTo(int page) {
  view_->scrollToPage(page);
}

void FeedApplication::waitForFrame(Outcome done) {
  frameWaiter_ = std::move(done);
}

void FeedApplication::setRate(float rate) {
  if (const auto cell = controller_->currentCell()) cell->setRate(rate);
}

void FeedApplication::seek(double seconds, Outcome done) {
  constexpr CMTimeScale kTimescale = 90000;
  const CMTime time = CMTimeMakeWithSeconds(seconds, kTimescale);
  // A video that is still loading has nothing to seek in yet.
  waitForFrame([this, time, done = std::move(done)](const std::string&) {
    controller_->currentCell()->seek(time, [done] { done({}); });
  });
}

void FeedApplication::setVolume(float volume) {
  control_->setVolume(static_cast<double>(volume));
  if (overlay_) overlay_->noteVolume();
}

void FeedApplication::shot(const std::string& file, Outcome done) {
  // What is drawn over the picture is no part of it, unless that was asked for.
  const bool hides = overlay_ && !options_.overlay;
  if (hides) overlay_->view()->setHidden(true);
  window_->snapshot([file, done = std::move(done)](const CGImagePtr& image) {
    if (!image) return done("there is no picture to write to " + file);
    // Compressing takes tens of milliseconds.
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), [=] {
      const auto error = image->writePNG(file);
      const std::string text = error ? file + ": " + error->localizedDescription() : std::string();
      dispatch_async(dispatch_get_main_queue(), [=] { done(text); });
    });
  });
  if (hides) overlay_->view()->setHidden(false);
}

void FeedApplication::printState() {
  std::printf("%s\n", manager_->debugDescription().c_str());
  std::fflush(stdout);
}

void FeedApplication::printStatus() {
  const int page = view_->page();
  std::printf("page %d of %d: %s, %s", page + 1, view_->pageCount(), nameOfPage(page).c_str(),
              control_->isPlaying()  ? "playing"
              : control_->isPaused() ? "paused"
                                     : "still");
  if (const auto position = control_->position())
    std::printf(", %.2f of %.2f s", position->time, position->length);
  std::printf(", volume %d %%%s%s%s\n", control_->volumePercent(),
              control_->isMuted() ? ", muted" : "", window_->isFullScreen() ? ", full screen" : "",
              control_->isPlaying() ? ", awake" : "");
  std::fflush(stdout);
}

void FeedApplication::setIdle(bool on) {
  controller_->setMainThreadIsIdle(on);
}

void FeedApplication::setFast(bool on) {
  controller_->setUseFastPlayer(on);
}

void FeedApplication::setBounds(long most, long mostWhileIdle) {
  controller_->setBounds(most, mostWhileIdle);
}

void FeedApplication::resetMediaServices() {
  AVAudioSession::sharedInstance().resetMediaServices();
}

}  // namespace zaffo::feed
