// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "doubles/ScriptedAsset.h"
#include "platform/avfoundation/AVPlayerItem.h"

namespace zaffo {

/// An item whose status is what a test says.
class ScriptedAVPlayerItem final : public AVPlayerItem {
 public:
  explicit ScriptedAVPlayerItem(std::shared_ptr<AVAsset> asset = std::make_shared<ScriptedAsset>())
      : asset_(std::move(asset)) {}

  /// An item whose asset answers `readable` to isReadable().
  static std::shared_ptr<ScriptedAVPlayerItem> create(bool readable) {
    const auto asset = std::make_shared<ScriptedAsset>();
    asset->readable = readable;
    return std::make_shared<ScriptedAVPlayerItem>(asset);
  }

  AVPlayerItemStatus statusValue = AVPlayerItemStatus::ReadyToPlay;
  NSErrorPtr errorValue;
  mutable int statusReads = 0;

  [[nodiscard]] AVPlayerItemStatus status() const override {
    ++statusReads;
    return statusValue;
  }
  [[nodiscard]] NSErrorPtr error() const override { return errorValue; }
  [[nodiscard]] const std::shared_ptr<AVAsset>& asset() const override { return asset_; }
  [[nodiscard]] CMTime duration() const override { return asset_->duration(); }
  [[nodiscard]] std::shared_ptr<const AVAudioMix> audioMix() const override { return mix_; }
  void setAudioMix(std::shared_ptr<const AVAudioMix> mix) override { mix_ = std::move(mix); }

 private:
  std::shared_ptr<AVAsset> asset_;
  std::shared_ptr<const AVAudioMix> mix_;
};

}  // namespace zaffo
