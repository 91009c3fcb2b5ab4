#include "FeedApplication.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <utility>

#include "cell/PlayerCell.h"

namespace zaffo::feed {

namespace {

/// A clip too short to loop is played as it is.
std::shared_ptr<FeedVideo> makeVideo(const URLs::value_type& url, std::string id,
                                     Options::Loop loop) {
  auto plain = ZFSingleLoopVideoPlayerItemLoader::createWithURL(url);
  if (loop != Options::Loop::Looping)
    return std::make_shared<FeedVideo>(url, std::move(id), std::move(plain));
  auto looping = ZFLoopingVideoPlayerItemLoader::createWithURL(url);
  return std::make_shared<FeedVideo>(url, std::move(id), std::move(looping), std::move(plain));
}

/// One video per page; a clip that appears more than once has an id for each page.
std::vector<std::shared_ptr<FeedVideo>> makeVideos(const URLs& urls, Options::Loop loop) {
  std::vector<std::shared_ptr<FeedVideo>> videos;
  std::map<std::string, int> count;
  for (const auto& url : urls) {
    std::string id = url->absoluteString();
    if (const int number = ++count[id]; number > 1) id += "#" + std::to_string(number);
    videos.push_back(makeVideo(url, std::move(id), loop));
  }
  return videos;
}

}  // namespace

FeedApplication::FeedApplication(Options options, const URLs& urls, std::vector<Command> commands)
    : options_(std::move(options)),
      commands_(std::move(commands)),
      videos_(makeVideos(urls, options_.loop)) {}

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
  view_ = FeedView::create(static_cast<int>(videos_.size()));
  window_->rootView()->addSubview(view_);
  fitFeedToWindow();

  const PlayerCell::Style style{options_.loop != Options::Loop::None, window_->size()};
  controller_ = FeedController::create(
      {manager_, view_, statistics_, [this](int page) { return nameOfPage(page); },
       [this, style](int page) {
         return PlayerCell::create(manager_, videos_[static_cast<std::size_t>(page)], style);
       }});
  view_->setPageHandler([this](int page) { controller_->showPage(page); });
  view_->setRestHandler([this] { controller_->scrollingEnded(); });
  input_ = std::make_unique<FeedInput>(
      view_, FeedInput::Actions{[this] {
                                  if (const auto cell = controller_->currentCell())
                                    cell->togglePlaying();
                                },
                                [this] { fitFeedToWindow(); }, [this] { loop_.quit(); }});
  window_->setInputHandler([this](const InputEvent& event) { input_->handle(event); });
  window_->setPresentHandler([this](int64_t hostNanoseconds) { presented(hostNanoseconds); });
  observeResets();
  controller_->start();
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
  return videos_[static_cast<std::size_t>(page)]->name();
}

int FeedApplication::playerCount() const {
  return static_cast<int>(manager_->playerCount());
}

void FeedApplication::presented(int64_t hostNanoseconds) {
  controller_->didPresent(hostNanoseconds);
}

void FeedApplication::turnEnded(const TurnTimes& turn) {
  statistics_->noteTurn(turn);
  if (frameWaiter_) {
    const auto cell = controller_->currentCell();
    if (cell && cell->isShown()) std::exchange(frameWaiter_, nullptr)({});
  }
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

// What a script can do

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
  controller_->setVolume(volume);
}

void FeedApplication::shot(const std::string& file, Outcome done) {
  window_->snapshot([file, done = std::move(done)](const CGImagePtr& image) {
    if (!image) return done("there is no picture to write to " + file);
    // Compressing takes tens of milliseconds.
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), [=] {
      const auto error = image->writePNG(file);
      const std::string text = error ? file + ": " + error->localizedDescription() : std::string();
      dispatch_async(dispatch_get_main_queue(), [=] { done(text); });
    });
  });
}

void FeedApplication::printState() {
  std::printf("%s\n", manager_->debugDescription().c_str());
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
