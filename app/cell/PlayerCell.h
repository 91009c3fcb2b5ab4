// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "cell/PagePlayback.h"
#include "cell/PlayerLoan.h"
#include "cell/Thumbnail.h"
#include "feed/FeedCell.h"
#include "feed/FeedPage.h"
#include "feed/FeedVideo.h"
#include "figures/FrameTally.h"

namespace zaffo::feed {

/// A page of the feed that shows a video with a player from the pool. Thread: main.
class PlayerCell final : public FeedCell, public std::enable_shared_from_this<PlayerCell> {
  struct Private {};

 public:
  /// What a clip does at its end, how large a thumbnail is wanted, in pixels, and pixels a point.
  struct Style {
    bool loops = true;  ///< an item that has ended starts again
    CGSize thumbnailSize;
    Density density = [] { return 1.0; };
  };

  PlayerCell(Private, const std::shared_ptr<PlayerManager>& manager,
             std::shared_ptr<FeedVideo> video, Style style);
  [[nodiscard]] static std::shared_ptr<PlayerCell> create(
      const std::shared_ptr<PlayerManager>& manager, std::shared_ptr<FeedVideo> video, Style style);

  [[nodiscard]] std::shared_ptr<UIView> view() const override { return page_; }
  void loadThumbnail() override;
  void load() override;
  void unload() override;
  [[nodiscard]] bool isSettled() const override;
  void setSettledHandler(std::function<void()> handler) override;
  void checkPlayer() override;
  void becomeCurrent(std::shared_ptr<Swipe> swipe, float volume) override;
  void resignCurrent() override;
  void scrollingEnded() override;
  void didPresent(int64_t hostNanoseconds) override;
  [[nodiscard]] bool isShown() const override;
  void updateRecord() override { noteFrameCounts(); }
  void setRate(float rate) override;
  [[nodiscard]] float rate() const override { return rate_; }
  void togglePlaying() override;
  void setHeld(bool held) override;
  [[nodiscard]] bool isPlaying() const override;
  [[nodiscard]] std::optional<ClipPosition> position() const override;
  void setVolume(float volume) override;
  void seek(CMTime time, std::function<void()> completion) override;
  bool showsFrameNearBy() const override { return playback_ && playback_->showsFrameNearBy(); }

 private:
  [[nodiscard]] NSErrorPtr itemError() const;
  [[nodiscard]] bool hasLostItem() const;
  void loanChanged();
  void showPlayer();
  void hidePlayer();
  void startPlaying();
  void rewind();
  void playbackEnded();
  void applyRate();
  void failOnTheWay(std::string reason);
  void showFailure();
  void tryAgainSoon();
  void tryAgain();
  void stopTrying();
  void thumbnailChanged();
  void noteFirstFrame(int64_t hostNanoseconds);
  void noteFrameCounts();

  const std::shared_ptr<FeedVideo> video_;
  const Style style_;
  const std::shared_ptr<FeedPage> page_;
  const std::shared_ptr<PlayerLoan> loan_;
  const std::shared_ptr<Thumbnail> thumbnail_;
  std::function<void()> settledHandler_;

  std::shared_ptr<PagePlayback> playback_;  // while the loan has a player
  FrameTally tally_;
  bool isAtStart_ = true;    // of the video, or on the way there
  bool isOnScreen_ = false;  // since it became current
  bool isHeld_ = false;
  bool isAtEnd_ = false;  // and stays there

  NSErrorPtr failure_;  // that of an item which failed on the way
  DispatchTimerPtr nextTry_;
  int64_t pause_ = 0;  // before the next try, in nanoseconds

  std::shared_ptr<Swipe> swipe_;  // while current, null otherwise
  float rate_ = 1;
  float volume_ = 1;
};

}  // namespace zaffo::feed
