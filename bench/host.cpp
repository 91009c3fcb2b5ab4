// SPDX-License-Identifier: Apache-2.0

// What the application around a player notices of it, each in a process of its own:
//   zaffo-bench-host heap MIB CLIP           its memory, beside a torn heap of so many MiB
//   zaffo-bench-host wake-ups SECONDS CLIP   how often threads wake: drawn, hidden and idle
//   zaffo-bench-host freeze SECONDS CLIP     what comes after the process stood still for so long
// Prints one line of JSON.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "BenchFeed.h"
#include "Floor.h"
#include "Report.h"
#include "Usage.h"

namespace {

using bench::Handle;
using bench::Loop;

struct Feed {
  std::shared_ptr<zaffo::PlayerManager> pool;
  Handle handle;

  Feed(const std::string& clip, Loop loop, bench::Kind kind = bench::Kind::Native)
      : pool(bench::makePool(kind)),
        handle(bench::openCold(pool, std::make_shared<bench::Video>(clip, "clip", loop))) {
    bench::runUntil([this] { return bench::hasPicture(handle); }, "a picture");
  }
  ~Feed() { goIdle(); }
  void goIdle() {
    if (!handle) return;
    handle->setRate(0);
    handle->releaseToManager();
    handle = nullptr;
  }
};

/// Blocks as an application has them after a while, with holes between them.
class TornHeap {
 public:
  explicit TornHeap(std::size_t mebibytes) {
    std::minstd_rand random(1);
    for (std::size_t left = mebibytes << 20; left > 0;) {
      const std::size_t bytes = std::min<std::size_t>(left, 64 + random() % 16'000);
      blocks_.push_back(static_cast<char*>(std::malloc(bytes)));
      std::fill_n(blocks_.back(), bytes, '1');
      left -= bytes;
    }
    for (std::size_t i = 0; i < blocks_.size(); i += 2) {
      std::free(blocks_[i]);
      blocks_[i] = nullptr;
    }
  }
  ~TornHeap() { std::ranges::for_each(blocks_, std::free); }
  TornHeap(const TornHeap&) = delete;
  TornHeap& operator=(const TornHeap&) = delete;

 private:
  std::vector<char*> blocks_;
};

/// The longest that a small allocation took the main thread, over so many seconds.
double longestAllocation(double seconds) {
  double longest = 0;
  for (const double end = bench::now() + seconds; bench::now() < end;) {
    const double before = bench::now();
    void* volatile block = std::malloc(3000);  // more than threads keep for themselves
    std::free(block);
    longest = std::max(longest, bench::now() - before);
    bench::runFor(0.0002);
  }
  return longest * 1e3;
}

void heap(const Report& report, std::size_t mebibytes, const std::string& clip) {
  zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  const TornHeap torn(mebibytes);
  const double calm = longestAllocation(1), before = usage().privateMiB;
  double idle = 0, kept = 0;
  {
    Feed feed(clip, Loop::Single);
    feed.handle->setRate(1);
    bench::runFor(2);
    feed.goIdle();
    idle = longestAllocation(2);
    kept = usage().privateMiB - before;
  }
  bench::runFor(2);
  report.print("{\"heap_mib\": %zu, \"calm_ms\": %.2f, \"idle_ms\": %.2f, ", mebibytes, calm, idle);
  report.print("\"idle_mib\": %.1f, \"gone_mib\": %.1f}\n", kept, usage().privateMiB - before);
}

/// By thread, how often it went to sleep of itself: each time something has to wake it.
using Sleeps = std::map<std::string, double>;

Sleeps sleeps() {
  Sleeps result;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    std::string name, line;
    while (std::getline(status, line)) {
      if (line.starts_with("Name:")) name = line.substr(line.find('\t') + 1);
      if (!line.starts_with("voluntary_ctxt_switches:")) continue;
      result[name] += std::strtod(line.c_str() + line.find('\t'), nullptr);
    }
  }
  return result;
}

std::string mainThreadName() {
  std::ifstream comm("/proc/self/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

void printWakeUps(const Report& report, const char* state, double seconds, const Handle& handle) {
  const auto shown = [&] { return bench::picturesOf(handle).shown; };
  const auto pictures = shown();
  const Sleeps before = sleeps();
  bench::runFor(seconds);
  double all = 0;
  std::string threads;
  Sleeps after = sleeps();
  after[mainThreadName()] -= 1;  // the one with which this program itself waited
  for (auto [name, count] : after) {
    if (const auto former = before.find(name); former != before.end()) count -= former->second;
    if (count == 0) continue;
    all += count / seconds;
    char text[64];
    std::snprintf(text, sizeof text, "%s\"%s\": %.1f", threads.empty() ? "" : ", ", name.c_str(),
                  count / seconds);
    threads += text;
  }
  report.print("\"%s\": {\"per_second\": %.1f, \"pictures\": %.1f, \"threads\": {%s}}", state, all,
               static_cast<double>(shown() - pictures) / seconds, threads.c_str());
}

void wakeUps(const Report& report, double seconds, const std::string& clip) {
  zaffo::Window::Options options;
  options.offscreen = true;
  std::shared_ptr<const zaffo::NSError> error;
  const auto window = zaffo::Window::create(options, &error);
  if (!window) std::exit(1);
  Feed feed(clip, Loop::Endless);
  const Handle handle = feed.handle;
  const auto view = handle->outputView();
  view->setFrame(zaffo::CGRectMake(0, 0, options.size.width, options.size.height));
  window->rootView()->addSubview(view);
  handle->setRate(1);
  bench::runFor(6);  // until the sound device has its place
  report.print("{");
  printWakeUps(report, "drawn", seconds, handle);
  view->removeFromSuperview();
  bench::runFor(1);
  report.print(", ");
  printWakeUps(report, "hidden", seconds, handle);
  handle->setRate(0);
  bench::runFor(5);  // until the device is closed
  report.print(", ");
  printWakeUps(report, "idle", seconds, handle);
  report.print("}\n");
}

/// The process stands still for a while, all threads of it, as when a machine sleeps.
void standStill(int seconds) {
  const pid_t self = getpid(), child = fork();
  if (child < 0) std::exit(1);
  if (child == 0) {
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    sigprocmask(SIG_BLOCK, &alarms, nullptr);
    kill(self, SIGSTOP);
    alarm(static_cast<unsigned>(seconds));
    int rung = 0;
    sigwait(&alarms, &rung);
    kill(self, SIGCONT);
    _exit(0);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
}

/// Milliseconds until a player that stood still shows the picture that is due, beside those that
/// the first picture took.
void freeze(const Report& report, bench::Kind kind, int seconds, const std::string& clip) {
  zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  const std::vector<uint64_t> marks = floors::File(clip).decodeMarks();
  const double rate = static_cast<double>(marks.size()) / floors::File(clip).duration();
  const Feed feed(clip, Loop::Single, kind);
  feed.handle->setRate(1);
  bench::runFor(2);
  standStill(seconds);
  const double awake = bench::now();
  std::size_t due = 0;
  const auto isRight = [&] {
    const double position = zaffo::CMTimeGetSeconds(feed.handle->currentTime());
    due = static_cast<std::size_t>(std::max(position, 0.0) * rate);
    return due < marks.size() && bench::shownMark(feed.handle) == marks[due];
  };
  bench::runUntil(isRight, "the picture that is due");
  const double right = bench::now() - awake;
  feed.handle->setRate(0);
  bench::seekUntilShown(feed.handle, 0, marks[0]);
  const double asked = bench::now();
  bench::seekUntilShown(feed.handle, (static_cast<double>(due) + 0.5) / rate, marks[due]);
  report.print("{\"right_ms\": %.2f, \"seek_ms\": %.2f}", right * 1e3,
               (bench::now() - asked) * 1e3);
}

void freezes(const Report& report, int seconds, const std::string& clip) {
  report.print("{\"native\": ");
  freeze(report, bench::Kind::Native, seconds, clip);
  report.print(", \"fast\": ");
  freeze(report, bench::Kind::Fast, seconds, clip);
  report.print("}\n");
}

}  // namespace

int main(int argc, char** argv) {
  const Report report;
  const std::string mode = argc == 4 ? argv[1] : "";
  if (mode == "heap") {
    heap(report, std::strtoul(argv[2], nullptr, 10), argv[3]);
  } else if (mode == "wake-ups") {
    wakeUps(report, std::strtod(argv[2], nullptr), argv[3]);
  } else if (mode == "freeze") {
    freezes(report, std::atoi(argv[2]), argv[3]);
  } else {
    std::fprintf(
        stderr,
        "usage: zaffo-bench-host heap MIB CLIP | wake-ups SECONDS CLIP | freeze SECONDS CLIP\n");
    return 2;
  }
  return 0;
}
