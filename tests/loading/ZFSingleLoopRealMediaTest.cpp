// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "doubles/Latency.h"
#include "doubles/StalledStorage.h"
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "pool/ZFMediaQueue.h"

namespace zaffo {
namespace {

/// The loader over real files.
class ZFSingleLoopRealMediaTest : public testing::Test {
 protected:
  struct LoadedItem {
    std::shared_ptr<AVPlayerItem> item;
    double loopSeconds = -1;
    double seconds = -1;
  };
  struct Thumbnail {
    std::shared_ptr<const UIImage> image;
    NSErrorPtr error;
  };

  static std::shared_ptr<ZFSingleLoopVideoPlayerItemLoader> loaderOf(const std::string& name) {
    return ZFSingleLoopVideoPlayerItemLoader::createWithURL(
        NSURL::fileURLWithPath(test::clip(name)));
  }

  static LoadedItem load(const std::string& name) {
    std::promise<LoadedItem> loaded;
    loaderOf(name)->loadAVPlayerItemWithOptions(
        {}, [&loaded](std::shared_ptr<AVPlayerItem> item, double loopSeconds, double seconds) {
          EXPECT_TRUE(ZFMediaQueue::queue()->isCurrent());
          loaded.set_value({std::move(item), loopSeconds, seconds});
        });
    return loaded.get_future().get();
  }

  static std::future<Thumbnail> beginThumbnail(const std::string& name, CGSize size) {
    const auto made = std::make_shared<std::promise<Thumbnail>>();
    loaderOf(name)->loadThumbnailWithPriority(
        0, size, [made](std::shared_ptr<const UIImage> image, NSErrorPtr error) {
          EXPECT_TRUE(ZFMediaQueue::queue()->isCurrent());
          made->set_value({std::move(image), std::move(error)});
        });
    return made->get_future();
  }

  static Thumbnail thumbnail(const std::string& name, CGSize size) {
    return beginThumbnail(name, size).get();
  }
};

TEST_F(ZFSingleLoopRealMediaTest, LoadsAClipWithItsLengthAndItsKeys) {
  const auto loaded = load("video_only.mp4");
  ASSERT_TRUE(loaded.item);
  EXPECT_DOUBLE_EQ(loaded.seconds, 2);
  EXPECT_DOUBLE_EQ(loaded.loopSeconds, 2);
  EXPECT_TRUE(loaded.item->asset()->isReadable());
  for (const char* key : {"tracks", "duration", "playable"}) {
    EXPECT_EQ(loaded.item->asset()->statusOfValueForKey(key), AVKeyValueStatus::Loaded) << key;
  }
}

TEST_F(ZFSingleLoopRealMediaTest, FilesThatHaveNoPictureOrAreNoVideoGiveNoItem) {
  for (const char* name : {"audio_only.m4a", "text.mp4", "empty.mp4", "missing.mp4"}) {
    const auto loaded = load(name);
    EXPECT_EQ(loaded.item, nullptr) << name;
    EXPECT_EQ(loaded.loopSeconds, 0.0) << name;
    EXPECT_EQ(loaded.seconds, 0.0) << name;
  }
}

TEST_F(ZFSingleLoopRealMediaTest, PicturesTheFirstFrameWithinTheSizeAndDoesNotTurnIt) {
  const auto made = thumbnail("rotated_90.mp4", {72, 128});
  ASSERT_TRUE(made.image);
  EXPECT_EQ(made.error, nullptr);
  EXPECT_EQ(made.image->cgImage()->width(), 72);
  EXPECT_EQ(made.image->cgImage()->height(), 128);
  EXPECT_EQ(test::frameNumber(made.image->cgImage()), 0);
}

TEST_F(ZFSingleLoopRealMediaTest, ThumbnailsOfStalledFilesHoldUpNeitherOthersNorTheMediaQueue) {
  const std::string stalled = "h264_30_moov_last.mp4";
  const int files = std::min(static_cast<int>(std::thread::hardware_concurrency()) + 6, 30);
  std::vector<std::future<Thumbnail>> made;
  StalledStorage storage(test::clip(stalled));
  for (int i = 0; i < files; ++i) made.push_back(beginThumbnail(stalled, {72, 128}));
  ASSERT_TRUE(
      runMainLoopUntil([files] { return StalledStorage::waiting() == files; }, 10'000'000'000));
  EXPECT_LT(latencyOf(ZFMediaQueue::queue()), 20);
  EXPECT_TRUE(thumbnail("h264_25.mp4", {72, 128}).image);
  storage.release();
  for (auto& one : made) EXPECT_TRUE(one.get().image);
}

TEST_F(ZFSingleLoopRealMediaTest, AFileThatCannotBePicturedGivesThePlatformsError) {
  for (const char* name : {"text.mp4", "missing.mp4", "audio_only.m4a"}) {
    const auto made = thumbnail(name, {72, 128});
    EXPECT_EQ(made.image, nullptr) << name;
    ASSERT_TRUE(made.error) << name;
    EXPECT_FALSE(made.error->localizedDescription().empty()) << name;
  }
}

TEST_F(ZFSingleLoopRealMediaTest, ALoaderWithoutAURLFailsAndDoesNotCrash) {
  std::promise<bool> hasItem;
  ZFSingleLoopVideoPlayerItemLoader::createWithURL(nullptr)->loadAVPlayerItemWithOptions(
      {}, [&hasItem](const std::shared_ptr<AVPlayerItem>& item, double, double) {
        hasItem.set_value(item != nullptr);
      });
  EXPECT_FALSE(hasItem.get_future().get());
}

}  // namespace
}  // namespace zaffo
