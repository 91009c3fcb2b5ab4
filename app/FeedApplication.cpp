// SPDX-License-Identifier: Apache-2.0
#include "FeedApplication.h"

#include <cstdio>
#include <fstream>
#include <utility>

#include "cell/PlayerCell.h"

namespace zaffo::feed {

FeedApplication::FeedApplication(Options options, const Clips& clips, std::vector<Command> commands)
    : options_(std::move(options)), commands_(std::move(commands)), videos_(clips, options_.loop) {}

FeedApplication::~FeedApplication() = default;

int FeedApplication::run() {
  if (!openSound() || !openWindow()) return status_;
  makeFeed();
  startScript();
  loop_.run([this](const TurnTimes& turn) { turnEnded(turn); });
  finish();
  return status_;
}

void FeedApplication::complain(const std::string& text) {
  std::fprintf(stderr, "zaffo-feed: %s\n", text.c_str());
  status_ = 1;
}

// Opening

bool FeedApplication::openSound() {
  auto& session = AVAudioSession::sharedInstance();
  if (!options_.sound) session.setOutput(AVAudioSession::Output::None);
  if (options_.audioOut.empty()) return true;
  const auto error = session.startRecording(options_.audioOut);
  if (error) complain(options_.audioOut + ": " + error->localizedDescription());
  return !error;
}

bool FeedApplication::openWindow() {
  Window::Options options;
  options.title = "zaffo-feed";
  options.size = {static_cast<double>(options_.width), static_cast<double>(options_.height)};
  options.offscreen = options_.headless;
  options.scale = options_.scale;
  NSErrorPtr error;
  window_ = Window::create(options, &error);
  if (window_) return true;
  complain("cannot open a window: " +
           (error ? error->localizedDescription() : std::string("no reason given")) +
           (options_.headless ? "" : " (--headless needs no display)"));
  return false;
}

void FeedApplication::makeFeed() {
  manager_ = PlayerManager::create();
  manager_->setUseFastPlayer(options_.fast);
  view_ = FeedView::create(videos_.count());
  window_->rootView()->addSubview(view_);
  fitFeedToWindow();
  view_->startAt(static_cast<int>(options_.start) - 1);
  controller_ = makeController();
  control_ = PlaybackControl::create(controller_);
  makeOverlay();
  view_->setPageHandler([this](int page) { pageTurned(page); });
  view_->setRestHandler([this] { controller_->scrollingEnded(); });
  input_ = std::make_unique<FeedInput>(
      view_, FeedInput::Actions{
                 [this](Action action) { perform(action); },
                 [this](CGPoint place) { return OverlayView::isOnBar(place, window_->size()); },
                 [this](FeedInput::Phase phase, double x) { scrub(phase, x); }});
  window_->setInputHandler([this](const InputEvent& event) { handle(event); });
  window_->setPresentHandler([this](int64_t hostNanoseconds) { presented(hostNanoseconds); });
  observeResets();
  controller_->start();
  pageTurned(view_->page());
}

std::shared_ptr<FeedController> FeedApplication::makeController() {
  const double scale = window_->scale();
  const CGSize size = window_->size();
  const PlayerCell::Style style{options_.loop != Options::Loop::None,
                                {size.width * scale, size.height * scale},
                                [window = window_] { return window->scale(); }};
  return FeedController::create(
      {manager_, view_, statistics_, [this](int page) { return nameOfPage(page); },
       [this, style](int page) { return PlayerCell::create(manager_, videos_.at(page), style); },
       std::make_shared<PagePreloads>(NetworkPreloader::shared(),
                                      [this](int page) { return videos_.at(page)->url(); })});
}

void FeedApplication::makeOverlay() {
  if (options_.headless && !options_.overlay) return;
  overlay_ = Overlay::create({[window = window_] { return window->scale(); },
                              [this] { return overlayState(); },
                              [this](const auto& answer) { readPool(answer); }});
  window_->rootView()->addSubview(overlay_->view());
  overlay_->setSize(window_->size());
}

void FeedApplication::observeResets() {
  // The pool learns of a reset too, before or after this: the pages check once both have.
  NSNotificationCenter::defaultCenter().addObserver(
      resetObserver_, AVAudioSessionMediaServicesWereResetNotification, nullptr,
      [weakController = std::weak_ptr<FeedController>(controller_)](const NSNotification&) {
        dispatch_async(dispatch_get_main_queue(), [weakController] {
          if (const auto controller = weakController.lock()) controller->poolChanged();
        });
      });
}

void FeedApplication::fitFeedToWindow() {
  view_->setFrame({{0, 0}, window_->size()});
  view_->layoutIfNeeded();
  if (overlay_) overlay_->setSize(window_->size());
}

void FeedApplication::startScript() {
  if (commands_.empty()) return;
  runner_ = ScriptRunner::create(commands_, *this);
  runner_->run([this](ScriptRunner::Ending ending) { scriptEnded(ending); });
}

void FeedApplication::scriptEnded(ScriptRunner::Ending ending) {
  if (ending.failed) status_ = 1;
  // In a window a person can carry on; offscreen nobody could.
  if (ending.quit || options_.headless) loop_.quit();
}

// Running

std::string FeedApplication::nameOfPage(int page) const {
  return videos_.at(page)->name();
}

int FeedApplication::playerCount() const {
  return static_cast<int>(manager_->playerCount());
}

void FeedApplication::presented(int64_t hostNanoseconds) {
  controller_->didPresent(hostNanoseconds);
  view_->pictureShown();
  if (overlay_) overlay_->pictureShown();
}

void FeedApplication::turnEnded(const TurnTimes& turn) {
  statistics_->noteTurn(turn);
  if (frameWaiter_) {
    const auto cell = controller_->currentCell();
    if (cell && cell->isShown()) std::exchange(frameWaiter_, nullptr)({});
  }
  if (overlay_) {
    const auto cell = controller_->currentCell();
    overlay_->update(control_->isPaused(), (cell && !cell->isShown()) || control_->isSeeking());
  }
  if (std::exchange(isAwake_, control_->isPlaying()) != isAwake_)
    window_->setKeepsScreenAwake(isAwake_);
  if (warmedUp_ || statistics_->swipes().size() <= Statistics::kWarmedUp) return;
  warmedUp_ = true;
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT),
                 [statistics = statistics_, players = playerCount()] {
                   const auto figures = ProcessFigures::read();
                   dispatch_async(dispatch_get_main_queue(), [statistics, figures, players] {
                     statistics->setWarmedUpFigures(figures, players);
                   });
                 });
}

// Ending

void FeedApplication::finish() {
  const int players = playerCount();
  const auto figures = ProcessFigures::read();
  runner_ = nullptr;
  overlay_ = nullptr;
  window_->setInputHandler({});
  window_->setPresentHandler({});
  controller_->stop();
  statistics_->setFinalFigures(figures, players);
  if (!options_.statsFile.empty()) writeStatistics();
  manager_ = nullptr;
  if (!options_.audioOut.empty()) AVAudioSession::sharedInstance().stopRecording();
}

void FeedApplication::writeStatistics() {
  std::ofstream file(options_.statsFile);
  file << statistics_->json();
  file.close();
  if (!file) complain(options_.statsFile + ": cannot be written");
}

}  // namespace zaffo::feed
