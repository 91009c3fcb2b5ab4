// SPDX-License-Identifier: Apache-2.0

// Random use of several fast players and sessions at once, over real clips. What is loaded stays
// loaded until the test itself gets rid of it, unless the clip is a bad one.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ProcessCounts.h"
#include "doubles/TestSeed.h"
#include "fast/DamagedClip.h"
#include "fast/PlaybackSession.h"
#include "fast/PlayerFast.h"
#include "fast/PlayerFastOutputView.h"
#include "fast/QuietTrace.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSThread.h"

namespace zaffo {
namespace {

constexpr int kFrames = 60;  // that every whole clip has, 30 a second

/// What the random choices are made with, and what everything that is under stress reports to.
struct Stress {
  explicit Stress(unsigned seed) : random(seed) {}

  int below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random); }
  /// Anywhere in a clip, mostly; before it or beyond its end, sometimes.
  CMTime position() {
    return below(10) == 0 ? CMTimeMake(below(20) - 5, 1) : CMTimeMake(below(4 * 600), 600);
  }
  double rate() {
    static constexpr double kRates[] = {0, 0, 0.5, 1, 1, 1, 2, 16, -1};
    return kRates[below(9)];
  }
  const std::shared_ptr<AVAsset>& asset() {
    return assets[static_cast<std::size_t>(below(static_cast<int>(assets.size())))];
  }
  [[nodiscard]] bool isWhole(const std::shared_ptr<AVAsset>& asset) const {
    return std::find(assets.begin(), assets.end(), asset) - assets.begin() < wholeAssets;
  }
  void called() {
    ++calls;
    if (isOver) ++callsAfterTheEnd;
  }

  std::mt19937 random;
  std::vector<std::shared_ptr<AVAsset>> assets;  // the first ones are whole
  int wholeAssets = 0;
  std::vector<std::weak_ptr<void>> made;  // whatever is to be gone in the end
  PlaybackSessionFactory factory;
  std::atomic<bool> readersFail{true};
  std::atomic<int> readers{0};
  std::atomic<bool> isOver{false};  // everything is torn down, and what was under way is done
  std::atomic<int> calls{0}, callsAfterTheEnd{0};
};

/// A player, used on the main thread as the pool and its clients use it.
class StressedPlayer {
 public:
  explicit StressedPlayer(Stress& stress) : stress_(stress) {}

  void step() {
    if (!player_) {
      player_ = PlayerFast::create(stress_.factory);
      stress_.made.push_back(player_);
    }
    expectTheItemIsThere();
    switch (stress_.below(16)) {
      case 0:
        return load(stress_.asset());
      case 1:
        item_ = nullptr;
        return player_->teardownPlayerItem();
      case 2:
        if (command_) command_->cancel();
        return;
      case 3:
        item_ = nullptr;
        return stress_.below(2) == 0 ? player_->fullTeardown() : release();
      case 4:
      case 5:
      case 6:
        return player_->setRate(static_cast<float>(stress_.rate()));
      case 7:
        (void)player_->currentTime();
        return (void)picture();
      default:
        if (!item_) return load(stress_.asset());
        seek(stress_.position());
        if (stress_.below(3) == 0) seek(stress_.position());
    }
  }

  /// A clip that is whole never gets lost; of a bad one nothing is asked.
  void expectTheItemIsThere() {
    if (!item_ || player_->playerItem() == item_) return;
    EXPECT_FALSE(isWhole_) << "the item of a player was lost";
    item_ = nullptr;
  }

  void load(const std::shared_ptr<AVAsset>& asset) {
    const auto item = AVPlayerItem::playerItemWithAsset(asset);
    stress_.made.push_back(item);
    isWhole_ = stress_.isWhole(asset);
    item_ = nullptr;
    command_ =
        player_->loadPlayerItem(item, [this, item, load = ++loads_](const NSErrorPtr& error) {
          EXPECT_TRUE(NSThread::isMainThread());
          if (!error && load == loads_) item_ = item;
          stress_.called();
        });
  }
  void seek(CMTime time) {
    player_->seekToTime(time, kCMTimeZero, kCMTimeZero, [&stress = stress_](bool finished) {
      EXPECT_FALSE(finished);
      stress.called();
    });
  }
  /// Loads a clip that is whole, unless one is loaded, and stands on `frame`.
  void standOn(int frame, ManualTime& time) {
    if (!player_) player_ = PlayerFast::create(stress_.factory);
    expectTheItemIsThere();
    if (!item_ || !isWhole_) {
      load(stress_.assets[0]);
      time.settle();
      ASSERT_TRUE(item_);
    }
    player_->setRate(0);
    seek(CMTimeMake(2 * frame + 1, 60));
  }
  void release() {
    ++loads_;
    item_ = nullptr;
    player_ = nullptr;
    command_ = nullptr;
  }

  [[nodiscard]] std::optional<LayerPicture> picture() const {
    const auto view = std::static_pointer_cast<PlayerFastOutputView>(player_->outputView());
    const auto layer = view->sampleBufferDisplayerLayer();
    return layer ? layer->picture(TimeSource::now()) : std::nullopt;
  }

 private:
  Stress& stress_;
  std::shared_ptr<PlayerFast> player_;
  ZFCancelCommandPtr command_;
  int loads_ = 0;
  std::shared_ptr<AVPlayerItem> item_;  // that is loaded
  bool isWhole_ = false;                // the one loaded last
};

/// Hears of the failure of a session, which one of a whole clip never has.
class FailureListener final : public PlaybackSessionDelegate {
 public:
  explicit FailureListener(bool isWhole) : isWhole_(isWhole) {}
  void playbackSession(const std::shared_ptr<PlaybackSession>&, const NSErrorPtr& error) override {
    EXPECT_FALSE(isWhole_) << "a session failed: " << error->description();
  }

 private:
  const bool isWhole_;
};

/// A session, used from a thread of its own, as its header allows.
class StressedSession {
 public:
  explicit StressedSession(Stress& stress) : stress_(stress) {}

  void step() {
    if (!session_) return start(stress_.asset());
    const auto session = session_;
    switch (stress_.below(12)) {
      case 0:
        return release();
      case 1:
        return queue_->async([session] { session->stop(); });
      case 2:
      case 3:
      case 4:
        return queue_->async([session, rate = stress_.rate()] { session->setRate(rate); });
      case 5:
        (void)session->displayLayer()->picture(TimeSource::now());
        return queue_->async([session] { (void)session->currentTime(); });
      default:
        seek(stress_.position());
        if (stress_.below(3) == 0) seek(stress_.position());
    }
  }

  void start(const std::shared_ptr<AVAsset>& asset) {
    const auto item = AVPlayerItem::playerItemWithAsset(asset);
    auto session = PlaybackSession::create(item, stress_.factory);
    stress_.made.insert(stress_.made.end(), {item, session});
    isWhole_ = stress_.isWhole(asset);
    listener_ = std::make_shared<FailureListener>(isWhole_);
    session->setDelegate(listener_);
    bool hasStarted = false;
    session->start([&](const NSErrorPtr& error) { hasStarted = !error; });
    if (hasStarted) session_ = std::move(session);
  }
  void seek(CMTime time) {
    queue_->async([session = session_, time, &stress = stress_] {
      session->seek(time, [&stress](const NSErrorPtr& error) {
        EXPECT_TRUE(error);
        stress.called();
      });
    });
  }
  void standOn(int frame, ManualTime& time) {
    if (!session_ || !isWhole_) {
      release();
      start(stress_.assets[0]);
    }
    queue_->async([session = session_] { session->setRate(0); });
    time.settle();
    seek(CMTimeMake(2 * frame + 1, 60));
  }
  /// Lets go of it on its own queue.
  void release() {
    queue_->async([session = std::exchange(session_, nullptr)] {});
  }

  [[nodiscard]] std::optional<LayerPicture> picture() const {
    return session_->displayLayer()->picture(TimeSource::now());
  }

 private:
  Stress& stress_;
  std::shared_ptr<PlaybackSession> session_;
  const DispatchQueuePtr queue_ = dispatch_queue_create("test.session");
  std::shared_ptr<FailureListener> listener_;
  bool isWhole_ = false;
};

class SeekStress : public testing::Test {
 protected:
  static constexpr int kRounds = 3;
  static constexpr int kSteps = 50;

  SeekStress() {
    for (const char* whole : {"h264_30.mp4", "hevc.mp4", "vp9_opus.webm", "long_gop.mp4"}) {
      load(test::clip(whole));
      ++stress_.wholeAssets;
    }
    std::string half = half_.bytes();
    std::fill(half.begin() + static_cast<std::ptrdiff_t>(half.size() / 2), half.end(), '\0');
    half_.write(half);
    load(half_.path());
    for (const char* bad : {"damaged_half.mp4", "no_key_frame.mp4", "audio_only.m4a"}) {
      load(test::clip(bad));
    }
    makeFactory();
    for (const auto* const name : {AVPlayerItemDidPlayToEndTimeNotification,
                                   AVPlayerItemFailedToPlayToEndTimeNotification}) {
      NSNotificationCenter::defaultCenter().addObserver(token_, name, nullptr,
                                                        [this](const NSNotification&) {
                                                          EXPECT_TRUE(NSThread::isMainThread());
                                                          stress_.called();
                                                        });
    }
  }

  void load(const std::string& path) {
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(path));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    time_.settle();
    stress_.assets.push_back(asset);
  }

  /// The platform's own objects; a reader now and then cannot be made.
  void makeFactory() {
    const PlaybackSessionFactory real;
    stress_.factory.displayLayer = [this, real] {
      auto layer = real.displayLayer();
      layer->setBounds(CGRectMake(0, 0, 192, 108));
      stress_.made.push_back(layer);
      return layer;
    };
    stress_.factory.assetReaderWithAsset =
        [this, real](std::shared_ptr<AVAsset> asset,
                     NSErrorPtr* error) -> std::shared_ptr<AVAssetReader> {
      if (++stress_.readers % 23 == 0 && stress_.readersFail) {
        *error = NSError::create("test", 1);
        return nullptr;
      }
      return real.assetReaderWithAsset(std::move(asset), error);
    };
  }

  /// What there is goes on, for a while or just as far as it comes.
  void passTime() {
    if (stress_.below(3) > 0) return time_.advance(kNanosecondsPerMillisecond * stress_.below(120));
    (void)MainLoop::runTurn();
  }

  void misuse() {
    for (int step = 0; step < kSteps; ++step) {
      for (auto& player : players_) player.step();
      for (auto& session : sessions_) session.step();
      passTime();
    }
  }

  /// Everything stands on a frame in the end, and shows it.
  void expectRightFrames() {
    stress_.readersFail = false;
    time_.settle();
    int frame = stress_.below(kFrames);
    const auto next = [&frame] { return frame = (frame + 7) % kFrames; };
    const auto expectFrame = [this, &frame](const auto& subject, const char* what) {
      time_.settle();
      const auto picture = subject.picture();
      ASSERT_TRUE(picture) << what;
      EXPECT_EQ(test::frameNumber(picture->buffer), frame) << what;
    };
    for (auto& player : players_) {
      player.standOn(next(), time_);
      expectFrame(player, "a player");
    }
    for (auto& session : sessions_) {
      session.standOn(next(), time_);
      expectFrame(session, "a session");
    }
    stress_.readersFail = true;
  }

  void expectNothingLeft() {
    for (auto& player : players_) player.release();
    for (auto& session : sessions_) session.release();
    time_.settle();
    stress_.isOver = true;
    time_.advance(30 * kNanosecondsPerSecond);
    EXPECT_EQ(stress_.callsAfterTheEnd, 0);
    stress_.isOver = false;
    for (const auto& made : stress_.made) EXPECT_TRUE(made.expired());
    stress_.made.clear();
  }

  const unsigned seed_ = test::testSeed();
  const testing::ScopedTrace trace_{__FILE__, __LINE__, "ZAFFO_TEST_SEED=" + std::to_string(seed_)};
  const DamagedClip half_{"h264_30.mp4"};
  ManualTime time_;
  Stress stress_{seed_};
  const std::shared_ptr<int> token_ = std::make_shared<int>(0);
  std::vector<StressedPlayer> players_{5, StressedPlayer(stress_)};
  std::vector<StressedSession> sessions_;
};

TEST_F(SeekStress, RightFramesAfterwardsAndNothingLeftBehind) {
  const QuietTrace quiet;
  for (int i = 0; i < 3; ++i) sessions_.emplace_back(stress_);
  misuse();
  expectRightFrames();
  expectNothingLeft();
  const size_t threads = threadCountBesideQueues(), descriptors = descriptorCount();
  for (int round = 1; round < kRounds; ++round) {
    misuse();
    expectRightFrames();
    expectNothingLeft();
    EXPECT_LE(countOfThreadsThatStay(threadCountBesideQueues, threads), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
  }
  EXPECT_GT(stress_.calls, 0);
}

}  // namespace
}  // namespace zaffo
