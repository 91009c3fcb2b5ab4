// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cell/PlayerCell.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedMutablePlayer.h"

namespace zaffo::feed {

/// A loader whose answers a test gives.
class ScriptedLoader final : public AVPlayerItemLoader {
 public:
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion completeBlock) override {
    itemOptions.push_back(options);
    items.push_back(std::move(completeBlock));
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long, CGSize size,
                                               ThumbnailCompletion completion) override {
    thumbnailSize = size;
    thumbnails.push_back(std::move(completion));
    return ZFNoopCancelCommand::sharedInstance();
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long, PreloadCompletion) override {
    return ZFNoopCancelCommand::sharedInstance();
  }
  bool canReuseAVPlayerItem() const override { return true; }

  std::vector<AVPlayerItemLoaderOptions> itemOptions;
  std::vector<ItemCompletion> items;
  std::vector<ThumbnailCompletion> thumbnails;
  CGSize thumbnailSize;
};

inline NSErrorPtr errorSaying(const std::string& text) {
  return NSError::create("test", 1, {{NSLocalizedDescriptionKey, text}});
}

class PlayerCellTest : public testing::Test {
 protected:
  PlayerCellTest() {
    manager = PlayerManager::create([this](PlayerManager::PlayerKind) {
      player = std::make_shared<ScriptedMutablePlayer>("player", log);
      player->view = UIView::create();
      return player;
    });
    cell = makeCell(true);
  }

  std::shared_ptr<PlayerCell> makeCell(bool loops, const std::string& id = "id") {
    const auto url = NSURL::URLWithString("file:///clip.mp4");
    const auto video = std::make_shared<FeedVideo>(url, id, loader, plainLoader);
    auto made = PlayerCell::create(manager, video, {loops, {400, 700}});
    made->setSettledHandler([this] { ++settled; });
    return made;
  }

  void giveItem() {
    loader->items.back()(item, 5, 5);
    time.settle();
  }
  void finishLoad(NSErrorPtr error = nullptr) {
    player->finishPendingLoad(std::move(error));
    time.settle();
  }
  void loadCell() {
    cell->load();
    giveItem();
    finishLoad();
  }
  void giveThumbnail(NSErrorPtr error = nullptr) {
    const auto image = std::make_shared<const CGImage>(1, 1, 4, std::vector<uint8_t>{0, 0, 0, 255});
    loader->thumbnails.back()(error ? nullptr : UIImage::imageWithCGImage(image), error);
    time.settle();
  }
  void postEnd() {
    NSNotificationCenter::defaultCenter().postNotification(AVPlayerItemDidPlayToEndTimeNotification,
                                                           item);
    time.settle();
  }
  void failWhilePlaying() {
    loadCell();
    giveThumbnail();
    makeCurrent();
    NSNotificationCenter::defaultCenter().postNotification(
        AVPlayerItemFailedToPlayToEndTimeNotification, item,
        {{AVPlayerItemFailedToPlayToEndTimeErrorKey, errorSaying("damaged")}});
  }
  void makeCurrent() { cell->becomeCurrent(swipe, 0.5f); }

  [[nodiscard]] std::shared_ptr<FeedPage> page() const {
    return std::static_pointer_cast<FeedPage>(cell->view());
  }
  [[nodiscard]] bool showsPlayer() const {
    return player && player->view->superview() == cell->view();
  }

  ManualTime time;
  EventLog log = std::make_shared<std::vector<std::string>>();
  std::shared_ptr<ScriptedMutablePlayer> player;
  std::shared_ptr<ScriptedLoader> loader = std::make_shared<ScriptedLoader>();
  std::shared_ptr<ScriptedLoader> plainLoader;  ///< none at first
  std::shared_ptr<ScriptedAVPlayerItem> item = std::make_shared<ScriptedAVPlayerItem>();
  std::shared_ptr<PlayerManager> manager;
  std::shared_ptr<PlayerCell> cell;
  std::shared_ptr<Swipe> swipe = std::make_shared<Swipe>();
  int settled = 0;
};

}  // namespace zaffo::feed
