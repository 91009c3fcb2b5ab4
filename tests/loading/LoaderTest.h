// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedComposition.h"
#include "doubles/ScriptedImageGenerator.h"
#include "loading/ZFLoopingVideoPlayerItemLoader.h"
#include "loading/ZFSingleLoopVideoPlayerItemLoader.h"
#include "pool/ZFMediaQueue.h"

namespace zaffo {

/// A loader over a scripted platform.
template <typename Loader>
class LoaderTestOf : public testing::Test {
 protected:
  struct LoadedItem {
    std::shared_ptr<AVPlayerItem> item;
    double loopSeconds = -1;
    double seconds = -1;
    bool onMediaQueue = false;
  };
  struct Thumbnail {
    std::shared_ptr<const UIImage> image;
    NSErrorPtr error;
    bool onMediaQueue = false;
  };

  LoaderTestOf() {
    AVFactory factory;
    factory.URLAssetWithURL = [this](const AVFactory::URL& given) {
      itemURLs.push_back(given);
      return asset;
    };
    factory.assetWithURL = [this](const AVFactory::URL& given) {
      thumbnailURLs.push_back(given);
      return asset;
    };
    factory.playerItemWithAsset = [this](const std::shared_ptr<AVAsset>& itemAsset) {
      itemAssets.push_back(itemAsset);
      if (itemException) throw NSErrorException(itemException);
      return item;
    };
    factory.assetImageGeneratorWithAsset = [this](const std::shared_ptr<AVAsset>& pictured) {
      picturedAssets.push_back(pictured);
      return generator;
    };
    factory.composition = [this] {
      onComposition();
      return composition;
    };
    factory.audioMix = [this] {
      ++mixesMade;
      if (mixException) throw NSErrorException(mixException);
      return mix;
    };
    loader = std::make_shared<Loader>(factory);
    loader->setURL(url);
  }
  ~LoaderTestOf() override {
    asset->forgetRequests();
    assetOfItem->forgetRequests();
  }

  void load(AVPlayerItemLoaderOptions options = {}) {
    const auto command = loader->loadAVPlayerItemWithOptions(
        options, [this](std::shared_ptr<AVPlayerItem> loaded, double loopSeconds, double seconds) {
          items.push_back(
              {std::move(loaded), loopSeconds, seconds, ZFMediaQueue::queue()->isCurrent()});
        });
    EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
    time.settle();
  }

  void loadThumbnail(unsigned long priority = 0) {
    const auto command = loader->loadThumbnailWithPriority(
        priority, {90, 160}, [this](std::shared_ptr<const UIImage> image, NSErrorPtr error) {
          thumbnails.push_back(
              {std::move(image), std::move(error), ZFMediaQueue::queue()->isCurrent()});
        });
    EXPECT_EQ(command, ZFNoopCancelCommand::sharedInstance());
    time.settle();
  }

  /// The asset's handlers run, and all that follows from them.
  void finishLoading(const std::shared_ptr<ScriptedAsset>& loading) {
    loading->finishLoading();
    time.settle();
  }

  /// Exactly one completion, on the media queue, that reports a failure.
  void expectFailure() {
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].item, nullptr);
    EXPECT_EQ(items[0].loopSeconds, 0.0);
    EXPECT_EQ(items[0].seconds, 0.0);
    EXPECT_TRUE(items[0].onMediaQueue);
  }

  ManualTime time;
  const std::shared_ptr<const NSURL> url = NSURL::fileURLWithPath("/videos/clip.mp4");
  std::shared_ptr<ScriptedAsset> asset = std::make_shared<ScriptedAsset>();
  std::shared_ptr<ScriptedAsset> assetOfItem = std::make_shared<ScriptedAsset>();
  std::shared_ptr<ScriptedAVPlayerItem> item = std::make_shared<ScriptedAVPlayerItem>(assetOfItem);
  std::shared_ptr<ScriptedImageGenerator> generator = std::make_shared<ScriptedImageGenerator>();
  NSErrorPtr itemException, mixException;
  std::shared_ptr<ScriptedComposition> composition = std::make_shared<ScriptedComposition>();
  std::shared_ptr<AVMutableAudioMix> mix = AVMutableAudioMix::audioMix();
  std::function<void()> onComposition = [] {};
  int mixesMade = 0;
  std::shared_ptr<Loader> loader;

  std::vector<std::shared_ptr<const NSURL>> itemURLs, thumbnailURLs;
  std::vector<std::shared_ptr<AVAsset>> itemAssets, picturedAssets;
  std::vector<LoadedItem> items;
  std::vector<Thumbnail> thumbnails;
};

using LoaderTest = LoaderTestOf<ZFSingleLoopVideoPlayerItemLoader>;
using LoopingLoaderTest = LoaderTestOf<ZFLoopingVideoPlayerItemLoader>;

}  // namespace zaffo
