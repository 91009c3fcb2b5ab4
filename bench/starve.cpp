// SPDX-License-Identifier: Apache-2.0

// What heavy pages take away from the others:
//   zaffo-bench-starve play|seek|fast-play SECONDS LIGHT HEAVY...
// A light page plays with its sound on. So do the heavy ones, silent (play, fast-play), or an exact
// seek to the end of each of their clips is under way all the time (seek). Prints one line of JSON:
// the longest a block waited on a serial queue and on the global one, the longest silence in the
// light page's sound, and what was drawn of the light page and of the heavy ones.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BenchFeed.h"
#include "Report.h"

namespace {

using bench::Handle;

/// Posts a block every few milliseconds and notes how long it waits. A thread of its own.
class QueueProbe {
 public:
  explicit QueueProbe(zaffo::DispatchQueuePtr queue)
      : queue_(std::move(queue)), thread_([this] { run(); }) {}
  ~QueueProbe() { stop(); }

  double worstMilliseconds() {
    stop();
    return static_cast<double>(worst_) / 1e6;
  }

 private:
  static constexpr std::chrono::milliseconds kPause{5};  ///< between two looks

  static int64_t nanoseconds() { return static_cast<int64_t>(bench::now() * 1e9); }
  void run() {
    while (!stopped_) {
      std::atomic<int64_t> ran{0};
      const int64_t posted = nanoseconds();
      queue_->async([&ran] {
        ran = nanoseconds();
        ran.notify_one();
      });
      ran.wait(0);
      worst_ = std::max<int64_t>(worst_, ran - posted);
      std::unique_lock lock(stopMutex_);
      stopping_.wait_for(lock, kPause, [this] { return stopped_.load(); });
    }
  }
  void stop() {
    {
      const std::lock_guard lock(stopMutex_);
      stopped_ = true;
    }
    stopping_.notify_one();
    if (thread_.joinable()) thread_.join();
  }

  const zaffo::DispatchQueuePtr queue_;
  std::mutex stopMutex_;
  std::condition_variable stopping_;
  std::atomic<bool> stopped_{false};
  std::atomic<int64_t> worst_{0};
  std::thread thread_;
};

/// The longest silence between the first and the last sound of a recording, in milliseconds.
double longestSilence(const std::string& path, int rate) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const std::size_t data = bytes.find("data");
  if (data == std::string::npos) return -1;
  std::vector<float> sound((bytes.size() - data - 8) / sizeof(float));
  std::memcpy(sound.data(), bytes.data() + data + 8, sound.size() * sizeof(float));
  std::size_t last = 0, longest = 0;
  bool isFirst = true;
  for (std::size_t i = 0; i < sound.size(); ++i) {
    if (std::abs(sound[i]) < 1e-4f) continue;
    if (!isFirst) longest = std::max(longest, i - last);
    isFirst = false;
    last = i;
  }
  return isFirst ? -1 : static_cast<double>(longest) / 2 * 1000 / rate;
}

std::shared_ptr<zaffo::Window> openWindow(const zaffo::Window::Options& options) {
  std::shared_ptr<const zaffo::NSError> error;
  auto window = zaffo::Window::create(options, &error);
  if (window) return window;
  std::fprintf(stderr, "bench: %s\n", error ? error->localizedDescription().c_str() : "no window");
  std::exit(1);
}

/// The pages, in a window that nobody sees; the first is the light one.
struct Pages {
  zaffo::Window::Options options;
  std::shared_ptr<zaffo::Window> window;
  std::shared_ptr<zaffo::PlayerManager> pool;
  std::vector<Handle> handles;

  Pages(bench::Kind kind, const std::vector<std::string>& clips) {
    options.offscreen = true;
    window = openWindow(options);
    pool = bench::makePool(kind);
    pool->setMaxAllowedConcurrentPlayers(64);
    for (const std::string& clip : clips) add(clip);
    for (std::size_t i = 1; i < handles.size(); ++i) handles[i]->setVolume(0);
  }
  void add(const std::string& clip) {
    const std::size_t index = handles.size();
    handles.push_back(
        bench::openCold(pool, std::make_shared<bench::Video>(clip, std::to_string(index))));
    bench::runUntil([&] { return bench::hasPicture(handles.back()); }, "a picture");
    const double width = options.size.width / 4, height = width * 16 / 9;
    const auto view = handles.back()->outputView();
    view->setFrame(zaffo::CGRectMake(static_cast<double>(index % 4) * width,
                                     static_cast<double>(index / 4) * height, width, height));
    window->rootView()->addSubview(view);
  }
  [[nodiscard]] bench::Pictures heavyPictures() const {
    bench::Pictures all;
    for (std::size_t i = 1; i < handles.size(); ++i) {
      const bench::Pictures each = bench::picturesOf(handles[i]);
      all.shown += each.shown;
      all.dropped += each.dropped;
    }
    return all;
  }
};

/// Seeks to the end, and to the end once more.
void seekOn(const Handle& handle, double seconds) {
  const auto next = [weak = std::weak_ptr(handle), seconds](bool) {
    if (const auto again = weak.lock()) seekOn(again, seconds);
  };
  handle->seekToTime(zaffo::CMTimeMakeWithSeconds(seconds, 600), zaffo::kCMTimeZero,
                     zaffo::kCMTimeZero, next);
}

void keepBusy(const Pages& pages, bool seeks) {
  for (std::size_t i = 1; i < pages.handles.size(); ++i) {
    const Handle& handle = pages.handles[i];
    if (!seeks) {
      handle->setRate(1);
      continue;
    }
    const double duration = zaffo::CMTimeGetSeconds(handle->playerItem()->duration());
    seekOn(handle, duration - 0.1);
  }
}

void measure(const Report& report, Pages& pages, double seconds, bool seeks) {
  const std::string path = std::filesystem::temp_directory_path() / "zaffo-bench-starve.wav";
  auto& session = zaffo::AVAudioSession::sharedInstance();
  pages.handles.front()->setRate(1);
  bench::runFor(0.5);
  (void)session.startRecording(path);
  const bench::Pictures before = bench::picturesOf(pages.handles.front());
  QueueProbe serial(zaffo::dispatch_queue_create("probe"));
  QueueProbe global(zaffo::dispatch_get_global_queue(zaffo::DISPATCH_QUEUE_PRIORITY_DEFAULT));
  keepBusy(pages, seeks);
  bench::runFor(seconds);
  const bench::Pictures light = bench::picturesOf(pages.handles.front());
  const bench::Pictures heavy = pages.heavyPictures();
  session.stopRecording();
  report.print("{\"serial_ms\": %.1f, \"global_ms\": %.1f, \"silence_ms\": %.1f, ",
               serial.worstMilliseconds(), global.worstMilliseconds(),
               longestSilence(path, session.sampleRate()));
  report.print("\"light_shown\": %llu, \"light_dropped\": %llu, ", light.shown - before.shown,
               light.dropped - before.dropped);
  report.print("\"heavy_shown\": %llu, \"heavy_dropped\": %llu}\n", heavy.shown, heavy.dropped);
  std::filesystem::remove(path);
}

}  // namespace

int main(int argc, char** argv) {
  const Report report;
  const std::string mode = argc > 1 ? argv[1] : "";
  const bool seeks = mode == "seek";
  if (argc < 5 || (!seeks && mode != "play" && mode != "fast-play")) {
    std::fprintf(stderr, "usage: zaffo-bench-starve play|seek|fast-play SECONDS LIGHT HEAVY...\n");
    return 2;
  }
  zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  const auto kind = mode == "fast-play" ? bench::Kind::Fast : bench::Kind::Native;
  Pages pages(kind, {argv + 3, argv + argc});
  measure(report, pages, std::strtod(argv[2], nullptr), seeks);
  return 0;
}
