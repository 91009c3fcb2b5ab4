// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayer.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "native/PlayerNative.h"
#include "native/PlayerNativeOutputView.h"

namespace zaffo {

/// A native player over a scripted platform player, in time that stands still.
class NativeTest : public testing::Test {
 protected:
  static constexpr int64_t kInterval = kNanosecondsPerSecond / 10;

  /// What a load was told: "" for success, else domain, code and description.
  using Reports = std::vector<std::string>;

  static MutablePlayer::LoadCompletion into(const std::shared_ptr<Reports>& reports) {
    return [reports](const NSErrorPtr& error) {
      reports->push_back(error ? error->domain() + " " + std::to_string(error->code()) + " " +
                                     error->localizedDescription()
                               : "");
    };
  }

  /// An item that is not ready yet.
  static std::shared_ptr<ScriptedAVPlayerItem> waitingItem() {
    auto item = ScriptedAVPlayerItem::create(true);
    item->statusValue = AVPlayerItemStatus::Unknown;
    return item;
  }

  ManualTime time;
  std::shared_ptr<ScriptedAVPlayer> platform = std::make_shared<ScriptedAVPlayer>();
  std::shared_ptr<PlayerNative> player = PlayerNative::create(platform);
  const std::shared_ptr<Reports> reports = std::make_shared<Reports>();
};

}  // namespace zaffo
