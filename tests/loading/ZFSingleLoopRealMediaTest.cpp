#include <gtest/gtest.h>

#include <future>

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

  static Thumbnail thumbnail(const std::string& name, CGSize size) {
    std::promise<Thumbnail> made;
    loaderOf(name)->loadThumbnailWithPriority(
        0, size, [&made](std::shared_ptr<const UIImage> image, NSErrorPtr error) {
          EXPECT_TRUE(ZFMediaQueue::queue()->isCurrent());
          made.set_value({std::move(image), std::move(error)});
        });
    return made.get_future().get();
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
