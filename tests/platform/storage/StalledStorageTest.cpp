// SPDX-License-Identifier: Apache-2.0

// Files whose reads wait for seconds, and what they leave to others. In real time: where blocks
// wait for the outside, time that is moved by hand would wait with them. A program of its own, for
// the sound output's clock never goes back to a time that is moved by hand.

#include "doubles/StalledStorage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <numeric>
#include <optional>
#include <thread>
#include <vector>

#include "doubles/Latency.h"
#include "doubles/ProcessCounts.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/TimeSource.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVAssetReader.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/dispatch/BlockingThreads.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/playback/VideoOutput.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {
namespace {

constexpr int64_t kTenSeconds = 10'000'000'000;
constexpr double kAtOnceMilliseconds = 20;

class StalledStorageTest : public testing::Test {
 protected:
  /// Its index is at the end, so that what opening it reads is far from its first sample.
  const std::string stalledPath_ = test::clip("h264_30_moov_last.mp4");
  const std::string healthyPath_ = test::clip("h264_25.mp4");
  /// More than there are cores, where that is not a great many.
  const int files_ = std::min(static_cast<int>(std::thread::hardware_concurrency()) + 6, 15);

  ~StalledStorageTest() override { dispatch_wait_until_idle(); }

  static std::shared_ptr<AVAsset> assetAt(const std::string& path) {
    return AVAsset::assetWithURL(NSURL::fileURLWithPath(path));
  }

  static std::shared_ptr<AVAsset> loadedAsset(const std::string& path) {
    auto asset = assetAt(path);
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    dispatch_wait_until_idle();
    EXPECT_EQ(asset->statusOfValueForKey("tracks"), AVKeyValueStatus::Loaded);
    return asset;
  }

  [[nodiscard]] std::vector<std::shared_ptr<AVAsset>> assetsToStall() const {
    std::vector<std::shared_ptr<AVAsset>> assets;
    for (int i = 0; i < files_; ++i) assets.push_back(loadedAsset(stalledPath_));
    return assets;
  }

  static bool waitUntilStalled(int reads) {
    return runMainLoopUntil([reads] { return StalledStorage::waiting() >= reads; }, kTenSeconds);
  }

  static void expectQueuesAreFree() {
    EXPECT_LT(latencyOf(dispatch_queue_create("serial")), kAtOnceMilliseconds);
    EXPECT_LT(latencyOf(dispatch_get_main_queue()), kAtOnceMilliseconds);
    for (const auto priority : {DISPATCH_QUEUE_PRIORITY_HIGH, DISPATCH_QUEUE_PRIORITY_DEFAULT,
                                DISPATCH_QUEUE_PRIORITY_LOW, DISPATCH_QUEUE_PRIORITY_BACKGROUND}) {
      EXPECT_LT(latencyOf(dispatch_get_global_queue(priority)), kAtOnceMilliseconds) << priority;
    }
  }

  /// The numbers of the frames that a player shows until there were `count`, each once.
  static std::vector<int> shownFrames(AVPlayer& player, std::size_t count) {
    std::vector<int> numbers;
    const auto look = [&] {
      const auto picture = player.videoOutput()->pictureAtHostTime(TimeSource::now());
      const auto number = test::frameNumber(picture.buffer);
      if (number && (numbers.empty() || numbers.back() != *number)) numbers.push_back(*number);
      return numbers.size() == count;
    };
    (void)runMainLoopUntil(look, kTenSeconds);
    return numbers;
  }
};

TEST_F(StalledStorageTest, PlayersOfStalledFilesLeaveAnotherAllItsPictures) {
  const auto assets = assetsToStall();
  const auto healthy = AVPlayer::create();
  healthy->replaceCurrentItemWithPlayerItem(
      AVPlayerItem::playerItemWithAsset(loadedAsset(healthyPath_)));
  StalledStorage storage(stalledPath_);
  std::vector<std::shared_ptr<AVPlayer>> players;
  for (const auto& asset : assets) {
    players.push_back(AVPlayer::create());
    players.back()->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(asset));
    players.back()->setRate(1);
  }
  ASSERT_TRUE(waitUntilStalled(files_));
  // Slow enough that a machine with other things to do shows every picture.
  healthy->setRate(0.5);
  std::vector<int> all(30);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(shownFrames(*healthy, all.size()), all);
  expectQueuesAreFree();
  EXPECT_GE(StalledStorage::waiting(), files_);
  storage.release();
  EXPECT_EQ(shownFrames(*players.front(), 2).size(), 2U) << "it goes on";
}

/// The player itself is as free as the others.
TEST_F(StalledStorageTest, APlayerOfAStalledFileHearsWhatItIsTold) {
  auto asset = loadedAsset(stalledPath_);
  const std::weak_ptr<media::SampleSource> source = asset->sampleSource();
  const auto player = AVPlayer::create();
  player->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(asset));
  EXPECT_EQ(shownFrames(*player, 1), std::vector{0});
  StalledStorage storage(stalledPath_);
  std::optional<bool> far, back;
  player->setRate(1);
  player->seekToTime(CMTimeMake(3, 1), kCMTimeZero, kCMTimeZero, [&](bool done) { far = done; });
  ASSERT_TRUE(waitUntilStalled(1));
  EXPECT_FALSE(far);
  player->setRate(0);
  player->seekToTime(kCMTimeZero, kCMTimeZero, kCMTimeZero, [&](bool done) { back = done; });
  ASSERT_TRUE(runMainLoopUntil([&] { return far && back; }, kTenSeconds));
  EXPECT_EQ(far, false);
  EXPECT_EQ(back, true);
  EXPECT_EQ(player->currentTime(), kCMTimeZero);
  EXPECT_EQ(shownFrames(*player, 1), std::vector{0});
  asset.reset();
  player->replaceCurrentItemWithPlayerItem(nullptr);
  EXPECT_TRUE(runMainLoopUntil([&] { return source.expired(); }, kTenSeconds)) << "closed";
  EXPECT_GE(StalledStorage::waiting(), 1);
}

TEST_F(StalledStorageTest, AHundredPagesTakeNoMoreThreadsThanThoseForFiles) {
  constexpr int kPages = 100;
  std::vector<std::shared_ptr<AVPlayer>> players;
  for (int i = 0; i < kPages; ++i) {
    players.push_back(AVPlayer::create());
    players.back()->replaceCurrentItemWithPlayerItem(
        AVPlayerItem::playerItemWithAsset(loadedAsset(stalledPath_)));
  }
  expectQueuesAreFree();  // whose threads are there from then on
  const size_t threadsBefore = threadCount();
  StalledStorage storage(stalledPath_);
  for (const auto& player : players) player->setRate(1);
  ASSERT_TRUE(waitUntilStalled(BlockingThreads::kMostThreads));
  expectQueuesAreFree();
  EXPECT_LE(threadCount(), threadsBefore + BlockingThreads::kMostThreads);
  players.erase(players.begin(), players.end() - 1);  // a hundred at once are too many to decode
  storage.release();
  EXPECT_EQ(shownFrames(*players.back(), 2).size(), 2U) << "it goes on";
}

TEST_F(StalledStorageTest, ThumbnailsOfStalledFilesLeaveOthersTheirs) {
  const auto assets = assetsToStall();
  const auto healthy = loadedAsset(healthyPath_);
  StalledStorage storage(stalledPath_);
  const auto& background = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND);
  std::atomic<int> made{0};
  const auto make = [&](const std::shared_ptr<AVAsset>& asset) {
    background->async([&made, asset] {
      const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(asset);
      if (generator->copyCGImageAtTime(CMTimeMake(3, 2), nullptr, nullptr)) ++made;
    });
  };
  for (const auto& asset : assets) make(asset);
  ASSERT_TRUE(waitUntilStalled(files_));
  // Nor do those that wait for their asset to be loaded first.
  for (int i = 0; i < files_; ++i) make(assetAt(stalledPath_));
  ASSERT_TRUE(waitUntilStalled(2 * files_));
  make(healthy);
  EXPECT_TRUE(runMainLoopUntil([&] { return made == 1; }, kTenSeconds));
  expectQueuesAreFree();
  storage.release();
  EXPECT_TRUE(runMainLoopUntil([&] { return made == 2 * files_ + 1; }, kTenSeconds));
}

/// Neither do they hold a worker, nor is there a thread more than those for files.
TEST_F(StalledStorageTest, FourHundredThumbnailsOfStalledFilesTakeNoThreadAndHoldNoWorker) {
  constexpr int kThumbnails = 400, kSome = 50;
  std::vector<std::shared_ptr<AVAsset>> assets;
  for (int i = 0; i < kThumbnails; ++i) {
    // Half of them wait for their asset first.
    assets.push_back(i % 2 == 0 ? loadedAsset(stalledPath_) : assetAt(stalledPath_));
  }
  const auto healthy = loadedAsset(healthyPath_);
  expectQueuesAreFree();  // whose threads are there from then on
  const size_t threadsBefore = threadCount();
  StalledStorage storage(stalledPath_);
  std::atomic<int> made{0}, failed{0};
  const auto make = [&](const std::shared_ptr<AVAsset>& asset) {
    AVAssetImageGenerator::assetImageGeneratorWithAsset(asset)
        ->generateCGImageAsynchronouslyForTime(
            CMTimeMake(3, 2),
            [&](const CGImagePtr& image, CMTime, NSErrorPtr) { ++(image ? made : failed); });
  };
  for (int i = 0; i < kSome; ++i) make(assets[static_cast<size_t>(i)]);
  ASSERT_TRUE(waitUntilStalled(kSome));
  make(healthy);  // while there is a thread to read it
  EXPECT_TRUE(runMainLoopUntil([&] { return made == 1; }, kTenSeconds));
  for (int i = kSome; i < kThumbnails; ++i) make(assets[static_cast<size_t>(i)]);
  ASSERT_TRUE(waitUntilStalled(BlockingThreads::kMostThreads));
  expectQueuesAreFree();
  EXPECT_LE(threadCount(), threadsBefore + BlockingThreads::kMostThreads);
  storage.release();
  EXPECT_TRUE(runMainLoopUntil([&] { return made == kThumbnails + 1; }, 3 * kTenSeconds));
  EXPECT_EQ(failed, 0);
}

TEST_F(StalledStorageTest, ReadersOfStalledFilesLeaveTheQueuesFree) {
  const auto assets = assetsToStall();
  StalledStorage storage(stalledPath_);
  std::atomic<int> samples{0};
  for (const auto& asset : assets) {
    dispatch_queue_create("reader")->async([&samples, asset] {
      const auto reader = AVAssetReader::create(asset, nullptr);
      const auto output =
          AVAssetReaderTrackOutput::create(asset->tracksWithMediaType(AVMediaTypeVideo).front());
      reader->addOutput(output);
      (void)reader->startReading();
      while (output->copyNextSampleBuffer()) ++samples;
    });
  }
  ASSERT_TRUE(waitUntilStalled(files_));
  expectQueuesAreFree();
  storage.release();
  EXPECT_TRUE(runMainLoopUntil([&] { return samples == 120 * files_; }, kTenSeconds));
}

TEST_F(StalledStorageTest, HoweverManyAssetsAreLoadedThreadsHaveABoundAndCancellingIsHeardAtOnce) {
  constexpr int kAssets = 400;
  expectQueuesAreFree();  // whose threads are there from then on
  const size_t threadsBefore = threadCount();
  StalledStorage storage(stalledPath_);
  std::vector<std::shared_ptr<AVAsset>> assets;
  std::atomic<int> told{0};
  for (int i = 0; i < kAssets; ++i) {
    assets.push_back(assetAt(stalledPath_));
    assets.back()->loadValuesAsynchronouslyForKeys({"tracks"}, [&] { ++told; });
  }
  ASSERT_TRUE(waitUntilStalled(BlockingThreads::kMostThreads));
  EXPECT_LE(threadCount(), threadsBefore + BlockingThreads::kMostThreads);
  expectQueuesAreFree();

  using Clock = std::chrono::steady_clock;
  auto shortest = Clock::duration::max();
  for (int i = 0; i < 5; ++i) {
    const auto start = Clock::now();
    // One that is being read, and one that still waits for a thread.
    assets[static_cast<size_t>(i)]->cancelLoading();
    assets[static_cast<size_t>(kAssets - 1 - i)]->cancelLoading();
    ASSERT_TRUE(runMainLoopUntil([&] { return told == 2 * (i + 1); }, kTenSeconds));
    shortest = std::min(shortest, Clock::now() - start);
  }
  EXPECT_LT(shortest, std::chrono::milliseconds(20));
  EXPECT_EQ(assets.front()->statusOfValueForKey("tracks"), AVKeyValueStatus::Cancelled);
  for (const auto& asset : assets) asset->cancelLoading();
  EXPECT_TRUE(runMainLoopUntil([&] { return told == kAssets; }, kTenSeconds));
  EXPECT_GE(StalledStorage::waiting(), BlockingThreads::kMostThreads);
}

}  // namespace
}  // namespace zaffo
