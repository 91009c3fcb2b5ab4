// SPDX-License-Identifier: Apache-2.0
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"

#include <regex>
#include <sstream>

#include "loading/LoaderTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ZFSingleLoopVideoPlayerItemLoaderTest : public LoaderTest {};

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, IsMadeWithItsURL) {
  const auto made = ZFSingleLoopVideoPlayerItemLoader::createWithURL(url);
  EXPECT_EQ(made->url(), url);
  const auto other = NSURL::fileURLWithPath("/videos/other.mp4");
  made->setURL(other);
  EXPECT_EQ(made->url(), other);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, DescribesItselfByAddressAndShortURL) {
  std::ostringstream expected;
  expected << "<ZFSingleLoopVideoPlayerItemLoader: " << loader.get() << ", url: clip.mp4>";
  EXPECT_EQ(loader->description(), expected.str());
  loader->setURL(nullptr);
  EXPECT_TRUE(std::regex_match(
      loader->description(),
      std::regex("<ZFSingleLoopVideoPlayerItemLoader: 0x[0-9a-f]+, url: \\(null\\)>")));
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, ALoadedItemMayStayInAnIdlePlayer) {
  EXPECT_TRUE(loader->canReuseAVPlayerItem());
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, DeliversTheItemWithItsLengthTwiceOnTheMediaQueue) {
  asset->durationValue = CMTimeMake(7, 2);
  load();
  EXPECT_THAT(itemURLs, ElementsAre(url));
  EXPECT_THAT(asset->requestedKeys, ElementsAre(ElementsAre("tracks", "duration")));
  EXPECT_THAT(itemAssets, IsEmpty());
  finishLoading(asset);
  EXPECT_THAT(itemAssets, ElementsAre(asset));
  EXPECT_THAT(assetOfItem->requestedKeys,
              ElementsAre(ElementsAre("tracks", "duration", "playable")));
  EXPECT_THAT(items, IsEmpty()) << "the item's own keys are still being loaded";
  finishLoading(assetOfItem);
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].item, item);
  EXPECT_EQ(items[0].loopSeconds, 3.5);
  EXPECT_EQ(items[0].seconds, 3.5);
  EXPECT_TRUE(items[0].onMediaQueue);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, TheLengthIsThatOfTheAssetNotOfTheItem) {
  assetOfItem->durationValue = CMTimeMake(99, 1);
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).seconds, 5.0);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, NeverCompletesInsideTheCall) {
  bool completed = false;
  bool completedInside = true;
  dispatch_async(ZFMediaQueue::queue(), [&] {
    loader->loadAVPlayerItemWithOptions({}, [&](const auto&, double, double) { completed = true; });
    asset->statuses["tracks"] = AVKeyValueStatus::Failed;
    asset->finishLoading();
    completedInside = completed;
  });
  time.settle();
  EXPECT_FALSE(completedInside);
  EXPECT_TRUE(completed);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, OptionsHaveNoEffect) {
  load(AVPlayerItemLoaderOptions(~0ul));
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
  EXPECT_EQ(items.at(0).loopSeconds, 5.0);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, AKeyStillLoadingFailedOrCancelledFailsTheLoad) {
  for (const char* key : {"tracks", "duration"}) {
    for (const auto status :
         {AVKeyValueStatus::Loading, AVKeyValueStatus::Failed, AVKeyValueStatus::Cancelled}) {
      asset->statuses = {{key, status}};
      items.clear();
      load();
      finishLoading(asset);
      expectFailure();
    }
  }
  EXPECT_THAT(itemAssets, IsEmpty());
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, AnUnknownOrLoadedKeyPasses) {
  asset->statuses = {{"tracks", AVKeyValueStatus::Unknown}, {"duration", AVKeyValueStatus::Loaded}};
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
  EXPECT_THAT(asset->checkedKeys, ElementsAre("tracks", "duration"));
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, SoundAloneFailsTheLoad) {
  asset->trackList = {ScriptedAsset::track(AVMediaTypeAudio)};
  load();
  finishLoading(asset);
  expectFailure();
  EXPECT_THAT(itemAssets, IsEmpty());
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, AVideoTrackBehindASoundTrackIsFound) {
  asset->trackList = {ScriptedAsset::track(AVMediaTypeAudio),
                      ScriptedAsset::track(AVMediaTypeVideo)};
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, AnExceptionWhileTheItemIsMadeFailsTheLoad) {
  itemException = NSError::create("platform", 1);
  load();
  finishLoading(asset);
  expectFailure();
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, FailuresOfTheItemsOwnKeysAreNotDetected) {
  assetOfItem->statuses = {{"tracks", AVKeyValueStatus::Failed},
                           {"playable", AVKeyValueStatus::Cancelled}};
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
  EXPECT_THAT(assetOfItem->checkedKeys, IsEmpty());
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, EveryCallStartsFromTheURL) {
  load();
  load();
  EXPECT_EQ(itemURLs.size(), 2u);
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.size(), 2u);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, ARequestRunsToItsEndWithoutTheLoader) {
  load();
  loader.reset();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, ARequestThatHasEndedHoldsNothing) {
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  items.clear();
  itemAssets.clear();
  loader.reset();
  EXPECT_EQ(asset.use_count(), 1);
  EXPECT_EQ(item.use_count(), 1);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, AcceptsMissingCompletionsEverywhere) {
  const auto noop = ZFNoopCancelCommand::sharedInstance();
  EXPECT_EQ(loader->loadAVPlayerItemWithOptions({}, nullptr), noop);
  finishLoading(asset);
  finishLoading(assetOfItem);
  asset->trackList.clear();
  EXPECT_EQ(loader->loadAVPlayerItemWithOptions({}, nullptr), noop);
  finishLoading(asset);
  EXPECT_EQ(loader->loadThumbnailWithPriority(0, {1, 1}, nullptr), noop);
  EXPECT_EQ(loader->preloadWithPriority(0, nullptr), noop);
  time.settle();
  EXPECT_EQ(generator->copiedTimes.size(), 1u);
}

TEST_F(ZFSingleLoopVideoPlayerItemLoaderTest, PreloadingDoesNothingAndIsNeverReported) {
  bool called = false;
  const auto command = loader->preloadWithPriority(2, [&](const NSErrorPtr&) { called = true; });
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
  EXPECT_FALSE(called);
  EXPECT_THAT(itemURLs, IsEmpty());
  EXPECT_THAT(thumbnailURLs, IsEmpty());
}

}  // namespace
}  // namespace zaffo
