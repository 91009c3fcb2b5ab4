// SPDX-License-Identifier: Apache-2.0

// The fast player beside the native one and raw FFmpeg in one thread, on the same clip in the same
// run: zaffo-bench-fast CLIP OTHER-CLIP [Google Benchmark's options]. What is on show is told by
// its pixels, so that every time ends with the right picture.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "BenchFeed.h"
#include "Floor.h"

namespace {

using bench::Handle;
using bench::Kind;
using bench::Video;

constexpr double kSeekSeconds = 3.37;  // in the middle of a group of pictures

std::string clip, otherClip;
uint64_t firstMark, soughtMark;
double duration;

/// A pool with a player that shows the first picture of the clip, or of the other one.
struct Feed {
  std::shared_ptr<zaffo::PlayerManager> pool;
  std::shared_ptr<Video> wanted = std::make_shared<Video>(clip, "clip");
  bench::Item item;
  Handle handle;

  explicit Feed(Kind kind) : pool(bench::makePool(kind)) {}
  ~Feed() {
    handle.reset();
    pool.reset();
    bench::runFor(0.01);  // What the players leave to be finished does not run into the next one.
  }

  void openOther() {
    const auto other = std::make_shared<Video>(otherClip, "other");
    const Handle idle = bench::loadPlayer(pool, other, bench::loadItem(other));
    bench::runUntil([&] { return bench::shownMark(idle) != 0; }, "a picture");
  }
  void request() {
    pool->loadPlayer(wanted, item, {}, [this](const zaffo::PlayerLoadResult& result) {
      if (result.error()) return;
      zaffo::dispatch_async(zaffo::dispatch_get_main_queue(),
                            [this, player = result.player()] { handle = player; });
    });
  }
  void waitForFirstPicture() {
    bench::runUntil([this] { return handle && bench::shownMark(handle) == firstMark; },
                    "the first picture");
  }
};

/// From the request with a loaded item, one player idle that holds another video, to the picture.
void switchPlayer(benchmark::State& state, Kind kind) {
  for (auto _ : state) {
    Feed feed(kind);
    feed.openOther();
    bench::runFor(0.05);
    feed.item = bench::loadItem(feed.wanted);
    const double start = bench::now();
    feed.request();
    feed.waitForFirstPicture();
    state.SetIterationTime(bench::now() - start);
  }
}

/// How long the request itself keeps the main thread: making a player and starting it.
void start(benchmark::State& state, Kind kind) {
  for (auto _ : state) {
    Feed feed(kind);
    feed.item = bench::loadItem(feed.wanted);
    const double begin = bench::now();
    feed.request();
    state.SetIterationTime(bench::now() - begin);
    feed.waitForFirstPicture();
  }
}

void keyFrameFloor(benchmark::State& state) {
  for (auto _ : state) {
    floors::File file(clip);
    const double begin = bench::now();
    file.decodeFirstPicture();
    state.SetIterationTime(bench::now() - begin);
  }
}

void seek(benchmark::State& state, Kind kind) {
  Feed feed(kind);
  feed.item = bench::loadItem(feed.wanted);
  feed.request();
  feed.waitForFirstPicture();
  for (auto _ : state) {
    bench::seekUntilShown(feed.handle, 0, firstMark);
    bench::runFor(0.05);
    const double begin = bench::now();
    bench::seekUntilShown(feed.handle, kSeekSeconds, soughtMark);
    state.SetIterationTime(bench::now() - begin);
  }
}

void seekFloor(benchmark::State& state) {
  for (auto _ : state) {
    floors::File file(clip);
    file.decodeFirstPicture();
    const double begin = bench::now();
    file.decodePictureAt(kSeekSeconds);
    state.SetIterationTime(bench::now() - begin);
  }
}

/// What an application does that loops by itself: back to the beginning when the end has come.
void restart(benchmark::State& state, Kind kind) {
  Feed feed(kind);
  feed.item = bench::loadItem(feed.wanted);
  feed.request();
  feed.waitForFirstPicture();
  for (auto _ : state) {
    feed.handle->seekToTime(zaffo::CMTimeMakeWithSeconds(duration - 0.2, 600), zaffo::kCMTimeZero,
                            zaffo::kCMTimeZero, [](bool) {});
    bench::runFor(0.1);
    feed.handle->setRate(1);
    bench::runUntil([&] { return feed.handle->rate() == 0; }, "the end");
    const double begin = bench::now();
    bench::seekUntilShown(feed.handle, 0, firstMark);
    state.SetIterationTime(bench::now() - begin);
  }
}

void restartFloor(benchmark::State& state) {
  for (auto _ : state) {
    floors::File file(clip);
    file.decodePictureAt(duration - 0.2);
    const double begin = bench::now();
    file.rewind();
    state.SetIterationTime(bench::now() - begin);
  }
}

template <typename Function, typename... Arguments>
void add(const std::string& name, int repetitions, Function function, Arguments... arguments) {
  // One iteration a repetition: the median is over single runs, as a person meets them.
  benchmark::RegisterBenchmark(name.c_str(), function, arguments...)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1)
      ->Repetitions(repetitions);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: zaffo-bench-fast CLIP OTHER-CLIP [options]\n");
    return 2;
  }
  clip = argv[1];
  otherClip = argv[2];
  {
    floors::File file(clip);
    file.decodeFirstPicture();
    firstMark = file.mark();
    file.decodePictureAt(kSeekSeconds);
    soughtMark = file.mark();
    duration = file.duration();
  }
  zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  add("key-frame/floor", 25, keyFrameFloor);
  add("seek/floor", 15, seekFloor);
  add("restart/floor", 15, restartFloor);
  for (const auto& [name, kind] : {std::pair{"/native", Kind::Native}, {"/fast", Kind::Fast}}) {
    add(std::string("switch") + name, 25, switchPlayer, kind);
    add(std::string("start") + name, 25, start, kind);
    add(std::string("seek") + name, 15, seek, kind);
    add(std::string("restart") + name, 15, restart, kind);
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
