// SPDX-License-Identifier: Apache-2.0
#include "loading/ZFLoopingVideoPlayerItemLoader.h"

#include <regex>
#include <sstream>
#include <thread>

#include "loading/LoaderTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ZFLoopingVideoPlayerItemLoaderTest : public LoopingLoaderTest {
 protected:
  void addSound() { asset->trackList.push_back(ScriptedAsset::track(AVMediaTypeAudio)); }
  /// The volume of the first sound track at time zero.
  float firstVolume() const { return mix->inputParameters().at(0)->volumeRamps().at(0).start; }
};

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, IsMadeWithItsURL) {
  const auto made = ZFLoopingVideoPlayerItemLoader::createWithURL(url);
  EXPECT_EQ(made->url(), url);
  const auto other = NSURL::fileURLWithPath("/videos/other.mp4");
  made->setURL(other);
  EXPECT_EQ(made->url(), other);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, DescribesItselfByAddressAndShortURL) {
  std::ostringstream expected;
  expected << "<ZFLoopingVideoPlayerItemLoader: " << loader.get() << ", url: clip.mp4>";
  EXPECT_EQ(loader->description(), expected.str());
  loader->setURL(nullptr);
  EXPECT_TRUE(std::regex_match(
      loader->description(),
      std::regex("<ZFLoopingVideoPlayerItemLoader: 0x[0-9a-f]+, url: \\(null\\)>")));
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, ALoadedItemMayStayInAnIdlePlayer) {
  EXPECT_TRUE(loader->canReuseAVPlayerItem());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, BeginsOnTheHighPriorityQueueWithTheComposition) {
  std::vector<bool> onHighPriorityQueue;
  std::size_t assetsBefore = 1;
  onComposition = [&] {
    onHighPriorityQueue.push_back(
        dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH)->isCurrent());
    assetsBefore = itemURLs.size();
  };
  load();
  EXPECT_THAT(onHighPriorityQueue, ElementsAre(true));
  EXPECT_EQ(assetsBefore, 0u);
  EXPECT_THAT(itemURLs, ElementsAre(url));
  EXPECT_THAT(asset->requestedKeys, ElementsAre(ElementsAre("tracks", "duration")));
  EXPECT_EQ(static_cast<long>(DISPATCH_QUEUE_PRIORITY_HIGH), 2);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, DeliversAnItemOfTheCompositionOnTheMediaQueue) {
  asset->durationValue = CMTimeMake(65, 10);
  composition->durationValue = CMTimeMake(16645, 100);
  load();
  EXPECT_THAT(composition->calls, IsEmpty()) << "the asset is still being loaded";
  finishLoading(asset);
  EXPECT_THAT(composition->calls, SizeIs(2 + 26));
  EXPECT_THAT(itemAssets, ElementsAre(composition));
  EXPECT_EQ(item->audioMix(), mix);
  EXPECT_THAT(assetOfItem->requestedKeys,
              ElementsAre(ElementsAre("tracks", "duration", "playable")));
  EXPECT_THAT(items, IsEmpty()) << "the item's own keys are still being loaded";
  finishLoading(assetOfItem);
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].item, item);
  EXPECT_DOUBLE_EQ(items[0].loopSeconds, 6.4);
  EXPECT_DOUBLE_EQ(items[0].seconds, 166.45);
  EXPECT_TRUE(items[0].onMediaQueue);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AnItemOfAClipWithoutSoundHasAMixWithoutParameters) {
  load();
  finishLoading(asset);
  EXPECT_THAT(composition->added, SizeIs(1));
  EXPECT_EQ(item->audioMix(), mix);
  EXPECT_THAT(mix->inputParameters(), IsEmpty());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, TheSoundFadesInWhenTheOptionsAskForIt) {
  addSound();
  for (const unsigned long options : {2ul, 3ul, ~0ul}) {
    load(AVPlayerItemLoaderOptions(options));
    finishLoading(asset);
    EXPECT_EQ(firstVolume(), 0.f) << options;
  }
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, TheSoundBeginsAtFullVolumeOtherwise) {
  addSound();
  for (const unsigned long options : {0ul, 1ul, 4ul, ~2ul}) {
    load(AVPlayerItemLoaderOptions(options));
    finishLoading(asset);
    EXPECT_EQ(firstVolume(), 1.f) << options;
  }
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, NothingIsBuiltOnTheCallersThread) {
  std::thread::id builder;
  onComposition = [&] { builder = std::this_thread::get_id(); };
  loader->loadAVPlayerItemWithOptions({}, [](const auto&, double, double) {});
  time.settle();
  EXPECT_NE(builder, std::thread::id());
  EXPECT_NE(builder, std::this_thread::get_id());
  finishLoading(asset);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, NothingIsCompletedInsideTheCall) {
  asset->finishesAtOnce = assetOfItem->finishesAtOnce = true;
  for (const auto status : {AVKeyValueStatus::Loaded, AVKeyValueStatus::Failed}) {
    asset->statuses["tracks"] = status;
    std::thread::id completer;
    loader->loadAVPlayerItemWithOptions(
        {}, [&completer](const auto&, double, double) { completer = std::this_thread::get_id(); });
    time.settle();
    EXPECT_NE(completer, std::thread::id());
    EXPECT_NE(completer, std::this_thread::get_id());
  }
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AKeyStillLoadingFailedOrCancelledFailsTheLoad) {
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
  EXPECT_EQ(mixesMade, 0);
  EXPECT_THAT(composition->calls, IsEmpty());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AnUnknownOrLoadedKeyPasses) {
  asset->statuses = {{"tracks", AVKeyValueStatus::Unknown}, {"duration", AVKeyValueStatus::Loaded}};
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
  EXPECT_THAT(asset->checkedKeys, ElementsAre("tracks", "duration"));
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, SoundAloneFailsTheLoad) {
  asset->trackList = {ScriptedAsset::track(AVMediaTypeAudio)};
  load();
  finishLoading(asset);
  expectFailure();
  EXPECT_EQ(mixesMade, 0);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AnExceptionWhileTheItemIsMadeFailsTheLoad) {
  itemException = NSError::create("platform", 1);
  load();
  finishLoading(asset);
  expectFailure();
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AnExceptionWhileTheMixIsMadeFailsTheLoad) {
  mixException = NSError::create("platform", 3);
  load();
  finishLoading(asset);
  expectFailure();
  EXPECT_THAT(composition->calls, IsEmpty());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AnExceptionWhileTheCompositionIsBuiltFailsTheLoad) {
  composition->refuses = [](int, int) -> bool {
    throw NSErrorException(NSError::create("platform", 2));
  };
  load();
  finishLoading(asset);
  expectFailure();
  EXPECT_THAT(itemAssets, IsEmpty());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, ACompositionThatCannotBeBuiltIsNeverReported) {
  composition->refuses = [](int, int) { return true; };
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  time.advance(kNanosecondsPerSecond);
  EXPECT_THAT(items, IsEmpty());
  EXPECT_THAT(itemAssets, IsEmpty());
  EXPECT_THAT(assetOfItem->requestedKeys, IsEmpty());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, ACompletionThatIsNeverCalledIsLetGoOf) {
  composition->refuses = [](int, int) { return true; };
  const auto held = std::make_shared<int>(0);
  loader->loadAVPlayerItemWithOptions({}, [held](const auto&, double, double) {});
  time.settle();
  EXPECT_EQ(held.use_count(), 2);
  finishLoading(asset);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, FailuresOfTheItemsOwnKeysAreNotDetected) {
  assetOfItem->statuses = {{"tracks", AVKeyValueStatus::Failed},
                           {"playable", AVKeyValueStatus::Cancelled}};
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
  EXPECT_THAT(assetOfItem->checkedKeys, IsEmpty());
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, EveryCallStartsFromTheURL) {
  int compositions = 0;
  onComposition = [&] { ++compositions; };
  load();
  load();
  EXPECT_EQ(itemURLs.size(), 2u);
  EXPECT_EQ(compositions, 2);
  finishLoading(asset);
  EXPECT_EQ(mixesMade, 2);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.size(), 2u);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, ARequestRunsToItsEndWithoutTheLoader) {
  load();
  loader.reset();
  finishLoading(asset);
  finishLoading(assetOfItem);
  EXPECT_EQ(items.at(0).item, item);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, ARequestThatHasEndedHoldsNothing) {
  load();
  finishLoading(asset);
  finishLoading(assetOfItem);
  items.clear();
  itemAssets.clear();
  loader.reset();
  item->setAudioMix(nullptr);
  EXPECT_EQ(asset.use_count(), 1);
  EXPECT_EQ(item.use_count(), 1);
  EXPECT_EQ(composition.use_count(), 1);
  EXPECT_EQ(mix.use_count(), 1);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AcceptsMissingCompletionsEverywhere) {
  const auto noop = ZFNoopCancelCommand::sharedInstance();
  EXPECT_EQ(loader->loadAVPlayerItemWithOptions({}, nullptr), noop);
  time.settle();
  finishLoading(asset);
  finishLoading(assetOfItem);
  asset->trackList.clear();
  EXPECT_EQ(loader->loadAVPlayerItemWithOptions({}, nullptr), noop);
  time.settle();
  finishLoading(asset);
  EXPECT_EQ(itemURLs.size(), 2u);
  EXPECT_EQ(loader->loadThumbnailWithPriority(0, {1, 1}, nullptr), noop);
  EXPECT_EQ(loader->preloadWithPriority(0, nullptr), noop);
  time.settle();
  EXPECT_EQ(generator->copiedTimes.size(), 1u);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, PreloadingDoesNothingAndIsNeverReported) {
  bool called = false;
  const auto command = loader->preloadWithPriority(2, [&](const NSErrorPtr&) { called = true; });
  time.advance(kNanosecondsPerSecond);
  EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
  EXPECT_FALSE(called);
  EXPECT_THAT(itemURLs, IsEmpty());
  EXPECT_THAT(thumbnailURLs, IsEmpty());
}

// Thumbnails: what differs from the other loader's, and that the rest is shared.

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, TheThumbnailIsTheFirstFrameTurnedUpright) {
  generator->image = std::make_shared<CGImage>(2, 1, 8u, std::vector<uint8_t>(8));
  bool wasTurnedBeforeSized = false;
  generator->onMaximumSize = [&] { wasTurnedBeforeSized = !generator->appliedTransforms.empty(); };
  bool inBackground = false;
  generator->onCopy = [&] {
    inBackground = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND)->isCurrent();
  };
  loadThumbnail(2);
  EXPECT_THAT(thumbnailURLs, ElementsAre(url));
  EXPECT_THAT(generator->appliedTransforms, ElementsAre(true));
  EXPECT_TRUE(wasTurnedBeforeSized);
  EXPECT_THAT(generator->maximumSizes, ElementsAre(CGSize{90, 160}));
  EXPECT_THAT(generator->copiedTimes, ElementsAre(kCMTimeZero));
  EXPECT_TRUE(inBackground);
  ASSERT_EQ(thumbnails.size(), 1u);
  ASSERT_TRUE(thumbnails[0].image);
  EXPECT_EQ(thumbnails[0].image->cgImage(), generator->image);
  EXPECT_TRUE(thumbnails[0].onMediaQueue);
}

TEST_F(ZFLoopingVideoPlayerItemLoaderTest, AThumbnailThatCannotBeMadeGivesAnError) {
  generator->errorValue = NSError::create("platform", 9);
  loadThumbnail();
  ASSERT_EQ(thumbnails.size(), 1u);
  EXPECT_EQ(thumbnails[0].error, generator->errorValue);
  generator->errorValue = nullptr;
  loadThumbnail();
  ASSERT_EQ(thumbnails.size(), 2u);
  ASSERT_TRUE(thumbnails[1].error);
  EXPECT_EQ(thumbnails[1].error->domain(), "com.zaffoapp.media");
  EXPECT_EQ(thumbnails[1].error->code(), 4567);
}

}  // namespace
}  // namespace zaffo
