// SPDX-License-Identifier: Apache-2.0

// What players cost while they stand still and while they play, each in a process of its own:
//   zaffo-bench-load floor-memory|floor-bytes|memory|paused COUNT CLIPS
//   zaffo-bench-load floor-play|floor-play-picture|play|play-window COUNT SECONDS CLIPS
// memory, paused, play and play-window stand for native players of plain items; fast- before them
// makes the players fast, loop- the items looping, fast-loop- both. Prints one line of JSON.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchFeed.h"
#include "Floor.h"
#include "Report.h"
#include "Usage.h"

namespace {

using bench::Handle;
using bench::Kind;
using bench::Loop;

/// What is measured, and of which players.
struct Mode {
  std::string what;
  Kind kind = Kind::Native;
  Loop loop = Loop::Single;

  explicit Mode(std::string name) : what(std::move(name)) {
    if (dropPrefix("fast-")) kind = Kind::Fast;
    if (dropPrefix("loop-")) loop = Loop::Endless;
  }
  bool dropPrefix(const std::string& prefix) {
    if (!what.starts_with(prefix)) return false;
    what.erase(0, prefix.size());
    return true;
  }
};

/// The use once nothing is let go of any more, however busy the machine is.
Usage settledUsage() {
  bench::runFor(1);
  Usage present = usage();
  for (int calm = 0, looks = 0; calm < 3 && looks < 40; ++looks) {
    bench::runFor(0.5);
    const Usage next = usage();
    calm = std::abs(next.privateMiB - present.privateMiB) < 0.02 ? calm + 1 : 0;
    present = next;
  }
  return present;
}

/// The pool with `count` players that each show their first picture.
struct Feed {
  const Loop loop;
  std::shared_ptr<zaffo::PlayerManager> pool;
  std::vector<Handle> handles;

  explicit Feed(const Mode& mode) : loop(mode.loop), pool(bench::makePool(mode.kind)) {
    pool->setMaxAllowedConcurrentPlayers(64);
    pool->setMaxPlayersAtIdleState(64);
    zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  }
  ~Feed() { giveBack(); }

  /// The pool does not stop a player that nobody uses any more.
  void giveBack() {
    for (const auto& handle : handles) {
      handle->setRate(0);
      handle->releaseToManager();
    }
  }

  void load(std::size_t count, const std::vector<std::string>& clips) {
    while (handles.size() < count) {
      const std::size_t index = handles.size();
      const auto video =
          std::make_shared<bench::Video>(clips[index % clips.size()], std::to_string(index), loop);
      handles.push_back(bench::openCold(pool, video));
      bench::runUntil([&] { return bench::hasPicture(handles.back()); }, "a picture");
    }
  }
};

void printMemory(const Report& report, const Usage& one, const Usage& all, std::size_t count) {
  report.print("{\"count\": %zu, \"private_mib\": %.2f, \"one_private_mib\": %.2f, ", count,
               all.privateMiB, one.privateMiB);
  report.print("\"threads\": %d, \"one_threads\": %d}\n", all.threads, one.threads);
}

/// Loads one player and notes the use, then the others; all are idle when looked at.
void memory(const Report& report, const Mode& mode, std::size_t count,
            const std::vector<std::string>& clips) {
  Feed feed(mode);
  const auto usageOf = [&](std::size_t players) {
    feed.load(players, clips);
    feed.giveBack();
    return settledUsage();
  };
  const Usage one = usageOf(1);
  printMemory(report, one, usageOf(count), count);
}

/// The same, paused in the midst of playing.
void paused(const Report& report, const Mode& mode, std::size_t count,
            const std::vector<std::string>& clips) {
  Feed feed(mode);
  const auto usageOf = [&](std::size_t players) {
    feed.load(players, clips);
    for (const auto& handle : feed.handles) handle->setRate(1);
    bench::runFor(2);
    for (const auto& handle : feed.handles) handle->setRate(0);
    return settledUsage();
  };
  const Usage one = usageOf(1);
  printMemory(report, one, usageOf(count), count);
}

void floorMemory(const Report& report, std::size_t count, const std::vector<std::string>& clips) {
  std::vector<std::unique_ptr<floors::File>> files;
  const auto usageOf = [&](std::size_t number) {
    while (files.size() < number) {
      files.push_back(std::make_unique<floors::File>(clips[files.size() % clips.size()]));
      files.back()->decodeFirstPicture();
    }
    return usage();
  };
  const Usage one = usageOf(1);
  printMemory(report, one, usageOf(count), count);
}

/// The bytes that each player after the first holds at least: a picture, two seconds of samples.
void floorBytes(const Report& report, std::size_t count, const std::vector<std::string>& clips) {
  double bytes = 0;
  for (std::size_t i = 1; i < count; ++i) {
    bytes += floors::File(clips[i % clips.size()]).bytesAtLeast(2);
  }
  const double each = count > 1 ? bytes / static_cast<double>(count - 1) : 0;
  report.print("{\"count\": %zu, \"each_mib\": %.3f}\n", count, each / 1024 / 1024);
}

void printCores(const Report& report, double cores, std::size_t count,
                bench::Pictures pictures = {}) {
  report.print("{\"count\": %zu, \"cores\": %.4f, \"shown\": %llu, \"dropped\": %llu}\n", count,
               cores, pictures.shown, pictures.dropped);
}

/// The CPU used while `count` players play from their start, as cores.
double playFor(Feed& feed, double seconds) {
  for (const auto& handle : feed.handles) handle->setRate(1);
  const double cpu = cpuSeconds(), start = bench::now();
  bench::runFor(seconds);
  return (cpuSeconds() - cpu) / (bench::now() - start);
}

void play(const Report& report, const Mode& mode, std::size_t count, double seconds,
          const std::vector<std::string>& clips) {
  Feed feed(mode);
  feed.load(count, clips);
  bench::runFor(0.3);
  printCores(report, playFor(feed, seconds), count);
}

void playInWindow(const Report& report, const Mode& mode, std::size_t count, double seconds,
                  const std::vector<std::string>& clips) {
  zaffo::Window::Options options;
  options.offscreen = true;
  std::shared_ptr<const zaffo::NSError> error;
  const auto window = zaffo::Window::create(options, &error);
  if (!window) {
    std::fprintf(stderr, "bench: %s\n",
                 error ? error->localizedDescription().c_str() : "no window");
    std::exit(1);
  }
  Feed feed(mode);
  feed.load(count, clips);
  // The views share the window in four columns, or one fills it.
  const double columns = count == 1 ? 1 : 4;
  const double width = options.size.width / columns, height = width * 16 / 9;
  for (std::size_t i = 0; i < count; ++i) {
    const auto view = feed.handles[i]->outputView();
    view->setFrame(zaffo::CGRectMake(static_cast<double>(i % 4) * width,
                                     static_cast<double>(i / 4) * height, width, height));
    window->rootView()->addSubview(view);
  }
  bench::runFor(0.3);
  const double cores = playFor(feed, seconds);
  bench::Pictures all;
  for (const auto& handle : feed.handles) {
    const bench::Pictures pictures = bench::picturesOf(handle);
    all.shown += pictures.shown;
    all.dropped += pictures.dropped;
  }
  printCores(report, cores, count, all);
}

/// The CPU that decoding the same takes, spread over the time it plays.
void floorPlay(const Report& report, std::size_t count, double seconds, floors::File::Tracks tracks,
               const std::vector<std::string>& clips) {
  std::vector<std::unique_ptr<floors::File>> files;
  for (std::size_t i = 0; i < count; ++i)
    files.push_back(std::make_unique<floors::File>(clips[i % clips.size()]));
  const double cpu = cpuSeconds();
  for (const auto& file : files) (void)file->decode(seconds, tracks);
  printCores(report, (cpuSeconds() - cpu) / seconds, count);
}

int usageError() {
  std::fprintf(
      stderr,
      "usage: zaffo-bench-load floor-memory|floor-bytes|[fast-][loop-]memory|paused COUNT CLIP...\n"
      "       zaffo-bench-load floor-play[-picture]|[fast-][loop-]play[-window] COUNT "
      "SECONDS CLIP...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  const Report report;
  const Mode mode(argc > 1 ? argv[1] : "");
  const bool playing = mode.what.find("play") != std::string::npos;
  const int first = playing ? 4 : 3;
  if (argc <= first) return usageError();
  const auto count = static_cast<std::size_t>(std::strtoul(argv[2], nullptr, 10));
  const double seconds = playing ? std::strtod(argv[3], nullptr) : 0;
  const std::vector<std::string> clips(argv + first, argv + argc);
  using Tracks = floors::File::Tracks;
  if (mode.what == "memory") {
    memory(report, mode, count, clips);
  } else if (mode.what == "paused") {
    paused(report, mode, count, clips);
  } else if (mode.what == "floor-memory") {
    floorMemory(report, count, clips);
  } else if (mode.what == "floor-bytes") {
    floorBytes(report, count, clips);
  } else if (mode.what == "play") {
    play(report, mode, count, seconds, clips);
  } else if (mode.what == "play-window") {
    playInWindow(report, mode, count, seconds, clips);
  } else if (mode.what == "floor-play") {
    floorPlay(report, count, seconds, Tracks::Both, clips);
  } else if (mode.what == "floor-play-picture") {
    floorPlay(report, count, seconds, Tracks::PictureOnly, clips);
  } else {
    return usageError();
  }
  return 0;
}
