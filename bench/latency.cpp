// SPDX-License-Identifier: Apache-2.0

// How long a person waits, beside raw FFmpeg in one thread on the same clip: zaffo-bench-latency
// CLIP OTHER-CLIP [Google Benchmark's options]. Each time is from the call to the picture.
#include <benchmark/benchmark.h>

#include "BenchFeed.h"
#include "Floor.h"

namespace {

using bench::Handle;
using bench::Video;
using zaffo::PlayerManager;

constexpr double kSeekSeconds = 3.37;

std::string clip, otherClip;

std::shared_ptr<Video> video() {
  return std::make_shared<Video>(clip, "clip");
}
std::shared_ptr<Video> otherVideo() {
  return std::make_shared<Video>(otherClip, "other");
}

/// Measures `work` alone; what `prepare` gave is destroyed outside the measured time.
template <typename Prepare, typename Work>
void measure(benchmark::State& state, Prepare prepare, Work work) {
  for (auto _ : state) {
    auto prepared = prepare();
    const double start = bench::now();
    work(prepared);
    state.SetIterationTime(bench::now() - start);
  }
}

void waitForPicture(const Handle& handle) {
  bench::runUntil([&] { return bench::hasPicture(handle); }, "a picture");
}

struct Feed {
  std::shared_ptr<PlayerManager> pool = PlayerManager::create();
  std::shared_ptr<Video> wanted = video();
  bench::Item item;
  Handle handle;

  ~Feed() {
    giveBack();
    pool.reset();
    bench::runFor(0.01);  // What the players leave to be finished does not run into the next one.
  }

  /// The pool does not stop a player that nobody uses any more.
  void giveBack() {
    if (handle) handle->setRate(0);
    handle.reset();
  }
};

std::unique_ptr<Feed> emptyFeed() {
  return std::make_unique<Feed>();
}

/// One player, idle, that holds another video; and the item wanted, loaded.
std::unique_ptr<Feed> feedWithIdlePlayer() {
  auto feed = emptyFeed();
  const auto other = otherVideo();
  waitForPicture(bench::loadPlayer(feed->pool, other, bench::loadItem(other)));
  bench::runFor(0.02);
  feed->item = bench::loadItem(feed->wanted);
  return feed;
}

/// One player in use that shows its first picture.
std::unique_ptr<Feed> feedWithPlayer() {
  auto feed = emptyFeed();
  feed->item = bench::loadItem(feed->wanted);
  feed->handle = bench::loadPlayer(feed->pool, feed->wanted, feed->item);
  waitForPicture(feed->handle);
  bench::runFor(0.02);
  return feed;
}

void coldLibrary(benchmark::State& state) {
  measure(state, emptyFeed, [](auto& feed) {
    feed->handle = bench::openCold(feed->pool, feed->wanted);
    waitForPicture(feed->handle);
  });
}

/// The picture alone: the same item in a player of the platform, whose picture does not wait for
/// the sound as the pool's answer does.
void coldPictureLibrary(benchmark::State& state) {
  struct Picture {
    std::shared_ptr<zaffo::AVPlayer> player = zaffo::AVPlayer::create();
    std::shared_ptr<zaffo::AVPlayerLayer> layer = zaffo::AVPlayerLayer::create();
    Picture() { layer->setPlayer(player); }
    ~Picture() {
      player->replaceCurrentItemWithPlayerItem(nullptr);
      bench::runFor(0.01);
    }
  };
  measure(
      state, [] { return std::make_unique<Picture>(); },
      [](auto& picture) {
        picture->player->replaceCurrentItemWithPlayerItem(bench::loadItem(video()));
        // Looks, as a window does, each time that the layer asks for a draw.
        const auto look = [&] {
          return picture->layer->picture(static_cast<int64_t>(bench::now() * 1e9)).has_value();
        };
        bench::runUntil(look, "a picture");
      });
}

void coldFloor(benchmark::State& state) {
  measure(
      state, [] { return std::unique_ptr<floors::File>(); },
      [](auto& file) {
        file = std::make_unique<floors::File>(clip);
        file->decodeFirstPicture();
      });
}

void switchLibrary(benchmark::State& state) {
  measure(state, feedWithIdlePlayer, [](auto& feed) {
    feed->handle = bench::loadPlayer(feed->pool, feed->wanted, feed->item);
    waitForPicture(feed->handle);
  });
}

void switchFloor(benchmark::State& state) {
  measure(
      state, [] { return std::make_unique<floors::File>(clip); },
      [](auto& file) { file->decodeFirstPicture(); });
}

void warmLibrary(benchmark::State& state) {
  auto feed = feedWithPlayer();
  for (auto _ : state) {
    feed->giveBack();
    bench::runFor(0.002);  // The idle player is rewound.
    const double start = bench::now();
    feed->pool->loadPlayer(feed->wanted, feed->item, {},
                           [&](const auto& result) { feed->handle = result.player(); });
    const bool answered = feed->handle && bench::hasPicture(feed->handle);
    state.SetIterationTime(bench::now() - start);
    if (!answered) return state.SkipWithError("not answered inside the call, with a picture");
  }
}

void rewindLibrary(benchmark::State& state) {
  auto feed = feedWithPlayer();
  for (auto _ : state) {
    bench::seekExactly(feed->handle, 2.5);
    const double start = bench::now();
    bench::seekExactly(feed->handle, 0);
    state.SetIterationTime(bench::now() - start);
  }
}

void rewindFloor(benchmark::State& state) {
  measure(
      state,
      [] {
        auto file = std::make_unique<floors::File>(clip);
        file->decodeFirstPicture();
        file->decodePictureAt(2.5);
        return file;
      },
      [](auto& file) { file->rewind(); });
}

void seekLibrary(benchmark::State& state) {
  auto feed = feedWithPlayer();
  for (auto _ : state) {
    bench::seekExactly(feed->handle, 0);
    const double start = bench::now();
    bench::seekExactly(feed->handle, kSeekSeconds);
    state.SetIterationTime(bench::now() - start);
  }
}

/// From each seek of a drag to the next picture on show, which it may leave the exact one for.
void scrubLibrary(benchmark::State& state) {
  constexpr int kSeeks = 10;
  auto feed = feedWithPlayer();
  for (auto _ : state) {
    bench::seekExactly(feed->handle, 0);
    const double start = bench::now();
    for (int i = 0; i < kSeeks; ++i) {
      const auto before = bench::shownPicture(feed->handle);
      feed->handle->seekToTime(zaffo::CMTimeMakeWithSeconds(kSeekSeconds + 0.1 * i, 600),
                               zaffo::kCMTimeZero, zaffo::kCMTimeZero, [](bool) {});
      bench::runUntil([&] { return bench::shownPicture(feed->handle) != before; }, "a picture");
    }
    state.SetIterationTime((bench::now() - start) / kSeeks);
  }
}

void seekFloor(benchmark::State& state) {
  measure(
      state,
      [] {
        auto file = std::make_unique<floors::File>(clip);
        file->decodeFirstPicture();
        return file;
      },
      [](auto& file) { file->decodePictureAt(kSeekSeconds); });
}

/// The caller's time to let a player go.
void destroy(benchmark::State& state, float rate) {
  for (auto _ : state) {
    auto feed = feedWithPlayer();
    feed->handle->setRate(rate);
    if (rate > 0) bench::runFor(0.15);
    const double start = bench::now();
    feed->pool->removeAllPlayers();
    state.SetIterationTime(bench::now() - start);
  }
}

void destroyLoaded(benchmark::State& state) {
  destroy(state, 0);
}
void destroyPlaying(benchmark::State& state) {
  destroy(state, 1);
}

void add(const char* name, void (*function)(benchmark::State&), int iterations, int repetitions) {
  benchmark::RegisterBenchmark(name, function)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(iterations)
      ->Repetitions(repetitions);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: zaffo-bench-latency CLIP OTHER-CLIP [options]\n");
    return 2;
  }
  clip = argv[1];
  otherClip = argv[2];
  zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  // One iteration a repetition: the median is over single runs, as a person meets them.
  add("cold/floor", coldFloor, 1, 25);
  add("cold/library", coldLibrary, 1, 25);
  add("cold-picture/library", coldPictureLibrary, 1, 25);
  add("switch/floor", switchFloor, 1, 25);
  add("switch/library", switchLibrary, 1, 25);
  add("warm/library", warmLibrary, 1, 25);
  add("rewind/floor", rewindFloor, 1, 15);
  add("rewind/library", rewindLibrary, 1, 15);
  add("seek/floor", seekFloor, 1, 15);
  add("seek/library", seekLibrary, 1, 15);
  add("scrub/library", scrubLibrary, 1, 15);
  add("destroy-loaded/library", destroyLoaded, 1, 15);
  add("destroy-playing/library", destroyPlaying, 1, 15);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
