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

}  // namespace zaffo
