// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "Options.h"
#include "VideoList.h"
#include "feed/FeedController.h"
#include "feed/FeedInput.h"
#include "feed/FeedView.h"
#include "feed/FolderScan.h"
#include "feed/PlaybackControl.h"
#include "figures/MeasuredLoop.h"
#include "figures/Statistics.h"
#include "overlay/Overlay.h"
#include "script/ScriptRunner.h"

namespace zaffo::feed {

/// The program: a window, the feed in it, and a script that drives it. Thread: main.
class FeedApplication final : public ScriptHost {
 public:
  FeedApplication(Options options, const Clips& clips, std::vector<Command> commands);
  ~FeedApplication() override;

  /// Runs to the end and returns the exit status: 0, or 1 when something could not be opened or
  /// written or a command failed; standard error says what.
  [[nodiscard]] int run();

  /// What the run measured.
  [[nodiscard]] const Statistics& statistics() const { return *statistics_; }

 private:
  [[nodiscard]] bool openSound();
  [[nodiscard]] bool openWindow();
  void makeFeed();
  [[nodiscard]] std::shared_ptr<FeedController> makeController();
  void makeOverlay();
  void observeResets();
  void startScript();
  void scriptEnded(ScriptRunner::Ending ending);
  void finish();
  void writeStatistics();
  void complain(const std::string& text);

  // What a person does
  void handle(const InputEvent& event);
  void perform(Action action);
  void leave();
  void seekBy(double seconds);
  void scrub(FeedInput::Phase phase, double x);
  void changeVolume(int percent);
  void addVideos(const std::string& path);
  void addPages(const Clips& clips);
  void pageTurned(int page);
  [[nodiscard]] OverlayState overlayState() const;
  void readPool(const std::function<void(Overlay::Rows)>& answer);

  [[nodiscard]] int playerCount() const;
  [[nodiscard]] std::string nameOfPage(int page) const;
  void fitFeedToWindow();
  void presented(int64_t hostNanoseconds);
  void turnEnded(const TurnTimes& turn);

  void scrollBy(int pages) override;
  void scrollTo(int page) override;
  void waitForFrame(Outcome done) override;
  void setRate(float rate) override;
  void seek(double seconds, Outcome done) override;
  void setVolume(float volume) override;
  void shot(const std::string& file, Outcome done) override;
  void printState() override;
  void setIdle(bool on) override;
  void setFast(bool on) override;
  void setBounds(long most, long mostWhileIdle) override;
  void resetMediaServices() override;
  void sendInput(InputEvent event) override { handle(event); }
  void printStatus() override;

  const Options options_;
  const std::vector<Command> commands_;
  VideoList videos_;
  MeasuredLoop loop_;
  int status_ = 0;

  std::shared_ptr<Window> window_;
  std::shared_ptr<Statistics> statistics_ = std::make_shared<Statistics>();
  std::shared_ptr<PlayerManager> manager_;
  std::shared_ptr<FeedView> view_;
  std::shared_ptr<FeedController> controller_;
  std::shared_ptr<PlaybackControl> control_;
  std::shared_ptr<Overlay> overlay_;  // null where nobody sees it
  std::unique_ptr<FeedInput> input_;
  std::shared_ptr<ScriptRunner> runner_;
  std::shared_ptr<int> resetObserver_ = std::make_shared<int>(0);
  Outcome frameWaiter_;
  bool warmedUp_ = false;
  bool isAwake_ = true;  // the display is kept from its screen saver
  int64_t lastDrop_ = 0;
  std::optional<std::pair<int64_t, uint64_t>> poolRead_;  // when, and how many pictures by then
};

}  // namespace zaffo::feed
