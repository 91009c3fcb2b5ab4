// SPDX-License-Identifier: Apache-2.0

// This library, through the pool, as an application uses it.
#include "BenchFeed.h"
#include "Peer.h"

namespace {

class ZaffoPlayer final : public peers::Player {
 public:
  ~ZaffoPlayer() override { giveBack(); }

  void open(const std::string& path) override { open(path, bench::Loop::Single); }
  void openLooping(const std::string& path) override { open(path, bench::Loop::Endless); }
  void seek(double seconds) override { bench::seekExactly(handle_, seconds); }
  void play() override { handle_->setRate(1); }
  long pictures() override {
    const uint64_t mark = bench::shownMark(handle_);
    if (mark != mark_) ++pictures_;
    mark_ = mark;
    return pictures_;
  }

 private:
  void open(const std::string& path, bench::Loop loop) {
    giveBack();
    handle_ = bench::openCold(pool_, std::make_shared<bench::Video>(path, path, loop));
    bench::runUntil([this] { return bench::hasPicture(handle_); }, "a picture");
  }
  void giveBack() {
    if (!handle_) return;
    handle_->setRate(0);
    handle_.reset();
  }

  const std::shared_ptr<zaffo::PlayerManager> pool_ = [] {
    zaffo::AVAudioSession::sharedInstance().setOutput(zaffo::AVAudioSession::Output::None);
    auto pool = bench::makePool(bench::Kind::Native);
    pool->setMaxAllowedConcurrentPlayers(1);
    pool->setMaxPlayersAtIdleState(1);
    return pool;
  }();
  bench::Handle handle_;
  uint64_t mark_ = 0;
  long pictures_ = 0;
};

}  // namespace

std::unique_ptr<peers::Player> peers::makePlayer() {
  return std::make_unique<ZaffoPlayer>();
}

void peers::runFor(double seconds) {
  bench::runFor(seconds);
}
