// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <ZaffoPlayback/ZaffoPlayback.h>

#include "cell/ItemEndObserver.h"
#include "cell/PagePlayback.h"

namespace zaffo::feed {

/// A page's playback of a native player, which does nearly everything by itself: it only stops at
/// the end of its item, and has to be started again after a seek from there. Thread: main.
class NativePlayback final : public PagePlayback,
                             public std::enable_shared_from_this<NativePlayback> {
  struct Private {};

 public:
  /// `layer` shows the player's picture; with null the player is assumed to have one.
  [[nodiscard]] static std::shared_ptr<NativePlayback> create(std::shared_ptr<Player> player,
                                                              std::shared_ptr<AVPlayerLayer> layer,
                                                              Events events);
  NativePlayback(Private, std::shared_ptr<Player> player, std::shared_ptr<AVPlayerLayer> layer)
      : player_(std::move(player)), layer_(std::move(layer)) {}

  void setRate(float rate) override;
  void rewind() override;
  void seek(CMTime time, std::function<void()> done) override;
  [[nodiscard]] bool showsFrameNearBy() const override { return true; }
  [[nodiscard]] bool hasPicture() const override { return !layer_ || layer_->isReadyForDisplay(); }

 private:
  void goOn();

  const std::shared_ptr<Player> player_;
  const std::shared_ptr<AVPlayerLayer> layer_;
  std::optional<ItemEndObserver> endObserver_;
  float rate_ = 0;
  bool hasEnded_ = false;  ///< and no seek has led away from there yet
};

}  // namespace zaffo::feed
