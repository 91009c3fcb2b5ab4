// SPDX-License-Identifier: Apache-2.0

// What looping costs and how exact it is, each in a process of its own:
//   zaffo-bench-loops build CLIP            making a looping item of a loaded asset
//   zaffo-bench-loops cold CLIP             looping and plain item in turn: URL to first picture
//   zaffo-bench-loops seams native|fast SEAMS CLIP    pictures of a playing loop, in real time
// Prints one line of JSON, times in milliseconds. The pictures of CLIP must all differ.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "BenchFeed.h"
#include "Floor.h"
#include "Report.h"

namespace {

using bench::Handle;
using bench::Kind;
using bench::Loop;
using bench::Video;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

std::shared_ptr<zaffo::AVAsset> loadAsset(const std::string& clip) {
  const auto asset = zaffo::AVAsset::assetWithURL(zaffo::NSURL::fileURLWithPath(clip));
  bool loaded = false;
  asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [&] {
    zaffo::dispatch_async(zaffo::dispatch_get_main_queue(), [&] { loaded = true; });
  });
  bench::runUntil([&] { return loaded; }, "an asset");
  return asset;
}

void build(const Report& report, const std::string& clip) {
  const auto asset = loadAsset(clip);
  std::vector<double> times;
  while (times.size() < 101) {
    const double start = bench::now();
    const auto composition = zaffo::AVMutableComposition::create();
    const auto mix = zaffo::AVMutableAudioMix::audioMix();
    zaffo::ZFZaffoLoopingComposition builder;
    if (!builder.createAudioCrossFadeLoopingComposition(*composition, *mix, *asset)) {
      fail("the clip cannot be looped");
    }
    const auto item = zaffo::AVPlayerItem::playerItemWithAsset(composition);
    item->setAudioMix(mix);
    times.push_back((bench::now() - start) * 1000);
  }
  report.print("{\"build\": %.4f}\n", median(times));
}

double coldTime(const std::string& clip, Loop loop) {
  const auto pool = bench::makePool(Kind::Native);
  const auto video = std::make_shared<Video>(clip, "clip", loop);
  const double start = bench::now();
  const Handle handle = bench::openCold(pool, video);
  bench::runUntil([&] { return bench::hasPicture(handle); }, "a picture");
  const double time = (bench::now() - start) * 1000;
  pool->removeAllPlayers();
  bench::runFor(0.01);
  return time;
}

void cold(const Report& report, const std::string& clip) {
  std::vector<double> single, endless;
  (void)coldTime(clip, Loop::Single);  // What is only done once in a process.
  while (single.size() < 25) {
    single.push_back(coldTime(clip, Loop::Single));
    endless.push_back(coldTime(clip, Loop::Endless));
  }
  report.print("{\"single\": %.3f, \"endless\": %.3f}\n", median(single), median(endless));
}

/// A picture when it was seen first.
struct Sight {
  int frame;         ///< of the file
  double mediaTime;  ///< what the player told then, in seconds
};

/// Looks at what would be drawn whenever that may have changed, for a number of loops.
std::vector<Sight> watch(const Handle& handle, const std::map<uint64_t, int>& frames, int loops) {
  std::vector<Sight> sights;
  uint64_t last = 0;
  int seams = 0;
  const auto look = [&] {
    const uint64_t mark = bench::shownMark(handle);
    if (mark == 0 || mark == last) return;
    const auto found = frames.find(mark);
    if (found == frames.end()) fail("a picture that the clip does not have");
    if (!sights.empty() && found->second < sights.back().frame) ++seams;
    sights.push_back({found->second, zaffo::CMTimeGetSeconds(handle->currentTime())});
    last = mark;
  };
  // Asks at least each millisecond, as a display that never sleeps would.
  while (seams < loops) {
    look();
    zaffo::MainLoop::runTurn(1'000'000);
    if (handle->rate() == 0) fail("the loop ended");
  }
  return sights;
}

/// Which frames of a clip of constant rate a loop shows, and for how long all of them.
class LoopedFrames {
 public:
  /// `duration`: of clip and frame, in seconds.
  LoopedFrames(double duration, double frame, int frames)
      : length_(duration - 2 * kTrim),
        first_(static_cast<int>(std::floor(kTrim / frame + kNearly))),
        end_(std::min(static_cast<int>(std::ceil((duration - kTrim) / frame - kNearly)), frames)) {}
  [[nodiscard]] double length() const { return length_; }
  /// The first and the last one of a loop may be cut short; they count.
  [[nodiscard]] int count() const { return end_ - first_; }

 private:
  static constexpr double kTrim = 0.05;
  static constexpr double kNearly = 1e-6;
  double length_;
  int first_, end_;
};

void seams(const Report& report, Kind kind, int count, const std::string& clip) {
  std::map<uint64_t, int> frames;
  int number = 0;
  for (const uint64_t mark : floors::File(clip).decodeMarks()) frames.try_emplace(mark, number++);
  if (static_cast<int>(frames.size()) != number) fail("two pictures of the clip are alike");
  const double frame = floors::File(clip).duration() / number;
  const double duration = zaffo::CMTimeGetSeconds(loadAsset(clip)->duration());
  const LoopedFrames looped(duration, frame, number);

  const auto pool = bench::makePool(kind);
  const auto video = std::make_shared<Video>(clip, "clip", Loop::Endless);
  const Handle handle = bench::openCold(pool, video);
  bench::runUntil([&] { return bench::hasPicture(handle); }, "a picture");
  bench::runFor(0.3);
  handle->setRate(1);
  const std::vector<Sight> sights = watch(handle, frames, count);

  int missing = 0;
  double worst = 0;
  std::vector<double> late;
  for (std::size_t i = 1; i < sights.size(); ++i) {
    const bool seam = sights[i].frame < sights[i - 1].frame;
    const int step = sights[i].frame - sights[i - 1].frame + (seam ? looped.count() : 0);
    missing += step - 1;
    if (!seam) continue;
    const double due = static_cast<double>(late.size() + 1) * looped.length();
    late.push_back((sights[i].mediaTime - due) * 1000);
    worst = std::max(worst, late.back());
  }
  report.print("{\"seams\": %zu, \"late\": %.2f, \"worst\": %.2f, \"missing\": %d, ", late.size(),
               median(late), worst, missing);
  report.print("\"first\": %d, \"frame\": %.3f}\n", sights.front().frame, frame * 1000);
}

}  // namespace

int main(int argc, char** argv) {
  const Report report;
  const std::string mode = argc > 2 ? argv[1] : "";
  zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
  if (mode == "build") {
    build(report, argv[2]);
  } else if (mode == "cold") {
    cold(report, argv[2]);
  } else if (mode == "seams" && argc == 5) {
    const Kind kind = std::string(argv[2]) == "fast" ? Kind::Fast : Kind::Native;
    seams(report, kind, std::max(1, std::atoi(argv[3])), argv[4]);
  } else {
    std::fprintf(stderr,
                 "usage: zaffo-bench-loops build CLIP | cold CLIP | "
                 "seams native|fast SEAMS CLIP\n");
    return 2;
  }
  return 0;
}
