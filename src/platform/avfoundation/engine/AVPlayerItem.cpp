// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVPlayerItem.h"

#include "platform/avfoundation/engine/PlayerItem.h"

namespace zaffo {

std::shared_ptr<AVPlayerItem> AVPlayerItem::playerItemWithAsset(std::shared_ptr<AVAsset> asset) {
  if (!asset) {
    throw NSErrorException(
        NSError::create(AVFoundationErrorDomain, AVErrorUnknown,
                        {{NSLocalizedDescriptionKey, "A player item needs an asset."}}));
  }
  // What is put together further on is not played by this item.
  auto fixed = asset->copy();
  return std::make_shared<PlayerItem>(fixed ? std::move(fixed) : std::move(asset));
}

// Of an item that needs no buffer.

std::vector<CMTimeRange> AVPlayerItem::loadedTimeRanges() const {
  const CMTime whole = duration();
  if (!CMTIME_IS_NUMERIC(whole)) return {};
  return {CMTimeRangeMake(kCMTimeZero, whole)};
}

bool AVPlayerItem::isPlaybackBufferEmpty() const {
  return false;
}

bool AVPlayerItem::isPlaybackLikelyToKeepUp() const {
  return true;
}

bool AVPlayerItem::isPlaybackBufferFull() const {
  return true;
}

}  // namespace zaffo
