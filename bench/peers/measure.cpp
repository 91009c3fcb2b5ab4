// SPDX-License-Identifier: Apache-2.0

// One library beside the others: zaffo-peer-NAME latency CLIP OTHER-CLIP
//                                zaffo-peer-NAME memory|play COUNT CLIP...
//                                zaffo-peer-NAME loop SECONDS CLIP
//                                zaffo-peer-NAME first CLIP
// A clip is a file or an http address.
// Prints one line of JSON, times in milliseconds.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Peer.h"
#include "Usage.h"

namespace peers {

void letTimePass(double seconds) {
  std::mutex mutex;
  std::condition_variable never;
  std::unique_lock lock(mutex);
  never.wait_for(lock, std::chrono::duration<double>(seconds), [] { return false; });
}

void fail(const std::string& what) {
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

}  // namespace peers

namespace {

using Players = std::vector<std::unique_ptr<peers::Player>>;
using Clips = std::vector<std::string>;

constexpr int kRepetitions = 15;
constexpr double kSeekSeconds = 3.37;
constexpr double kPlaySeconds = 4.5;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double milliseconds(const std::function<void()>& work) {
  const double start = now();
  work();
  return (now() - start) * 1000;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

Players openAll(std::size_t count, const Clips& clips) {
  Players players;
  while (players.size() < count) {
    players.push_back(peers::makePlayer());
    players.back()->open(clips[(players.size() - 1) % clips.size()]);
  }
  return players;
}

void latency(const std::string& clip, const std::string& other) {
  std::vector<double> cold, switched, seek, rewind, destroy;
  peers::makePlayer()->open(clip);  // what a process loads once
  for (int i = 0; i < kRepetitions; ++i) {
    std::unique_ptr<peers::Player> player;
    cold.push_back(milliseconds([&] {
      player = peers::makePlayer();
      player->open(clip);
    }));
    player->open(other);
    peers::runFor(0.1);
    switched.push_back(milliseconds([&] { player->open(clip); }));
    peers::runFor(0.1);
    seek.push_back(milliseconds([&] { player->seek(kSeekSeconds); }));
    peers::runFor(0.1);
    rewind.push_back(milliseconds([&] { player->seek(0); }));
    player->play();
    peers::runFor(0.2);
    destroy.push_back(milliseconds([&] { player.reset(); }));
    peers::runFor(0.05);
  }
  std::printf("{\"cold\": %.3f, \"switch\": %.3f, \"seek\": %.3f, ", median(cold), median(switched),
              median(seek));
  std::printf("\"rewind\": %.3f, \"destroy\": %.3f}\n", median(rewind), median(destroy));
}

/// What a new process waits for its first picture.
void first(const std::string& clip) {
  std::unique_ptr<peers::Player> player;
  const double time = milliseconds([&] {
    player = peers::makePlayer();
    player->open(clip);
  });
  std::printf("{\"first\": %.1f}\n", time);
  std::fflush(stdout);
  std::_Exit(0);  // nothing more is to be fetched
}

/// Of players that stand still at their first picture.
void memory(std::size_t count, const Clips& clips) {
  Players players = openAll(1, clips);
  peers::runFor(2);
  const double one = usage().privateMiB;
  for (auto& player : openAll(count - 1, clips)) players.push_back(std::move(player));
  peers::runFor(3);
  const double each = count > 1 ? (usage().privateMiB - one) / static_cast<double>(count - 1) : 0;
  std::printf("{\"one\": %.2f, \"each\": %.2f, \"threads\": %d}\n", one, each, usage().threads);
}

void play(std::size_t count, const Clips& clips) {
  const Players players = openAll(count, clips);
  peers::runFor(0.5);
  for (const auto& player : players) player->play();
  const double cpu = cpuSeconds(), start = now();
  peers::runFor(kPlaySeconds);
  std::printf("{\"cores\": %.4f}\n", (cpuSeconds() - cpu) / (now() - start));
}

/// The longest time without a new picture while a clip plays again and again.
void loop(double seconds, const std::string& clip) {
  const auto player = peers::makePlayer();
  player->openLooping(clip);
  peers::runFor(0.5);
  player->play();
  peers::runFor(0.5);
  long pictures = player->pictures(), first = pictures;
  const double start = now();
  double last = start, longest = 0;
  while (now() - start < seconds) {
    peers::runFor(0.001);
    const long present = player->pictures();
    if (present == pictures) continue;
    pictures = present;
    longest = std::max(longest, now() - last);
    last = now();
  }
  longest = std::max(longest, now() - last);
  std::printf("{\"longest\": %.1f, \"pictures\": %ld}\n", longest * 1000, pictures - first);
}

int usageError() {
  std::fprintf(stderr,
               "usage: zaffo-peer-NAME latency CLIP OTHER-CLIP\n"
               "       zaffo-peer-NAME memory|play COUNT CLIP...\n"
               "       zaffo-peer-NAME loop SECONDS CLIP\n"
               "       zaffo-peer-NAME first CLIP\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return usageError();
  const std::string mode = argv[1];
  if (mode == "first") first(argv[2]);
  if (argc < 4) return usageError();
  const Clips clips(argv + 3, argv + argc);
  const auto count = static_cast<std::size_t>(std::strtoul(argv[2], nullptr, 10));
  if (mode == "latency") {
    latency(argv[2], clips[0]);
  } else if (mode == "memory" && count > 0) {
    memory(count, clips);
  } else if (mode == "play" && count > 0) {
    play(count, clips);
  } else if (mode == "loop") {
    loop(std::strtod(argv[2], nullptr), clips[0]);
  } else {
    return usageError();
  }
  return 0;
}
