// SPDX-License-Identifier: Apache-2.0

// The fast player begins on the main thread: what it shows first must not wait for the disk. In
// real time, for time that is moved by hand waits until no reading is under way.

#include "doubles/StalledStorage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "doubles/Latency.h"
#include "doubles/ProcessCounts.h"
#include "doubles/Sanitizers.h"
#include "fast/PlayerFast.h"
#include "fast/PlayerFastOutputView.h"
#include "fast/QuietTrace.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/TimeSource.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/dispatch/BlockingThreads.h"
#include "platform/foundation/NSNotificationCenter.h"

namespace zaffo {
namespace {

/// On the main thread; a sanitizer makes all ten times slower.
constexpr double kMostMilliseconds = test::kHasShadowMemory ? 10 : 1;

constexpr int64_t kTenSeconds = 10'000'000'000;
using Milliseconds = std::chrono::duration<double, std::milli>;

/// Storage that goes on by itself after a while, lest a main thread that waits for it waits for
/// ever.
class PatientStorage {
 public:
  explicit PatientStorage(const std::string& path) : storage_(path) {}
  ~PatientStorage() {
    {
      const std::lock_guard lock(mutex_);
      isOver_ = true;
    }
    over_.notify_all();
    watch_.join();
  }
  /// Whether it went on by itself: somebody waited for it.
  [[nodiscard]] bool gaveUp() {
    const std::lock_guard lock(mutex_);
    return gaveUp_;
  }

 private:
  void watch() {
    std::unique_lock lock(mutex_);
    if (over_.wait_for(lock, std::chrono::seconds(5), [this] { return isOver_; })) return;
    gaveUp_ = true;
    storage_.release();
  }

  StalledStorage storage_;
  std::mutex mutex_;
  std::condition_variable over_;
  bool isOver_ = false, gaveUp_ = false;
  std::thread watch_{[this] { watch(); }};
};

class FastStalledStorageTest : public testing::Test {
 protected:
  static constexpr int kPlayers = 5;
  /// Its index is at the end: what opening it reads last is far from its first sample.
  const std::string path_ = test::clip("h264_30_moov_last.mp4");

  ~FastStalledStorageTest() override {
    players_.clear();
    dispatch_wait_until_idle();
  }

  [[nodiscard]] std::shared_ptr<AVAsset> loadedAsset() const {
    auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(path_));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    dispatch_wait_until_idle();
    return asset;
  }

  /// As a loop is made: its first segment begins 0.05 s into the file.
  [[nodiscard]] static std::shared_ptr<AVAsset> looped(const std::shared_ptr<AVAsset>& asset) {
    const auto composition = AVMutableComposition::create();
    const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    const CMTimeRange range{CMTimeMake(1, 20), CMTimeMake(1, 1)};
    EXPECT_TRUE(track->insertTimeRange(range, asset->tracksWithMediaType(AVMediaTypeVideo).front(),
                                       kCMTimeZero, nullptr));
    composition->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    dispatch_wait_until_idle();
    return composition;
  }

  /// Puts each asset into a player of its own: the least of the times that this took.
  Milliseconds load(const std::vector<std::shared_ptr<AVAsset>>& assets) {
    auto least = Milliseconds::max();
    for (const auto& asset : assets) {
      const auto item = AVPlayerItem::playerItemWithAsset(asset);
      players_.push_back(PlayerFast::create());
      const auto start = std::chrono::steady_clock::now();
      players_.back()->loadPlayerItem(item, [this](const NSErrorPtr& error) {
        EXPECT_FALSE(error);
        ++loaded_;
      });
      least = std::min<Milliseconds>(least, std::chrono::steady_clock::now() - start);
    }
    const int all = static_cast<int>(assets.size());
    EXPECT_TRUE(runMainLoopUntil([&] { return loaded_ == all; }, kTenSeconds));
    return least;
  }

  /// The number of the frame that each player shows, once it shows one.
  [[nodiscard]] std::vector<std::optional<int>> shown() const {
    std::vector<std::optional<int>> numbers;
    for (const auto& player : players_) {
      const auto view = std::dynamic_pointer_cast<PlayerFastOutputView>(player->outputView());
      const auto& layer = view->sampleBufferDisplayerLayer();
      std::optional<int> number;
      (void)runMainLoopUntil(
          [&] {
            const auto picture = layer->picture(TimeSource::now());
            if (picture) number = test::frameNumber(picture->buffer);
            return number.has_value();
          },
          1'000'000'000);
      numbers.push_back(number);
    }
    return numbers;
  }

  const QuietTrace quiet_;
  std::vector<std::shared_ptr<PlayerFast>> players_;
  int loaded_ = 0;
};

TEST_F(FastStalledStorageTest, ALoadedItemOfAStalledFileIsTakenAndShownAtOnce) {
  std::vector<std::shared_ptr<AVAsset>> assets;
  for (int i = 0; i < kPlayers; ++i) assets.push_back(loadedAsset());
  PatientStorage storage(path_);
  EXPECT_LT(load(assets).count(), kMostMilliseconds);
  EXPECT_FALSE(storage.gaveUp());
  EXPECT_EQ(shown(), std::vector<std::optional<int>>(kPlayers, 0));
  EXPECT_LT(latencyOf(dispatch_queue_create("other")), 20);
}

TEST_F(FastStalledStorageTest, SoIsOneOfAnAssetThatOthersPlay) {
  const auto asset = loadedAsset();
  PatientStorage storage(path_);
  EXPECT_LT(load(std::vector(kPlayers, asset)).count(), kMostMilliseconds);
  EXPECT_FALSE(storage.gaveUp());
  EXPECT_EQ(shown(), std::vector<std::optional<int>>(kPlayers, 0));
}

TEST_F(FastStalledStorageTest, SoIsALoopOfIt) {
  std::vector<std::shared_ptr<AVAsset>> assets, files;
  for (int i = 0; i < kPlayers; ++i) {
    files.push_back(loadedAsset());
    assets.push_back(looped(files.back()));
  }
  PatientStorage storage(path_);
  EXPECT_LT(load(assets).count(), kMostMilliseconds);
  EXPECT_FALSE(storage.gaveUp());
  EXPECT_EQ(shown(), std::vector<std::optional<int>>(kPlayers, 1));
}

TEST_F(FastStalledStorageTest, AHundredThatWaitForSamplesHoldNoWorkerAndGoOnWhenTheseHaveCome) {
  constexpr int kMany = 100;
  std::vector<std::shared_ptr<AVAsset>> assets;
  for (int i = 0; i < kMany; ++i) assets.push_back(loadedAsset());
  const auto& background = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND);
  EXPECT_LT(latencyOf(background), 20);  // whose threads are there from then on
  const size_t threadsBefore = threadCount();
  StalledStorage storage(path_);
  (void)load(assets);
  for (const auto& player : players_) player->setRate(1);
  ASSERT_TRUE(runMainLoopUntil(
      [] { return StalledStorage::waiting() >= BlockingThreads::kMostThreads; }, kTenSeconds));
  EXPECT_LT(latencyOf(background), 20);
  EXPECT_LE(threadCount(), threadsBefore + BlockingThreads::kMostThreads);
  players_.erase(players_.begin() + 1, players_.end());  // a hundred at once are too many to decode
  const auto ended = std::make_shared<bool>(false);
  NSNotificationCenter::defaultCenter().addObserver(
      ended, AVPlayerItemDidPlayToEndTimeNotification, players_.back()->playerItem(),
      [raw = ended.get()](const NSNotification&) { *raw = true; });
  storage.release();
  EXPECT_TRUE(runMainLoopUntil([&] { return *ended; }, kTenSeconds)) << "it is read to its end";
}

}  // namespace
}  // namespace zaffo
