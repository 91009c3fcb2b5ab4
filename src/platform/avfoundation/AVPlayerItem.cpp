#include "platform/avfoundation/AVPlayerItem.h"

#include "platform/avfoundation/PlayerItem.h"

namespace zaffo {

std::shared_ptr<AVPlayerItem> AVPlayerItem::playerItemWithAsset(std::shared_ptr<AVAsset> asset) {
  if (!asset) {
    throw NSErrorException(
        NSError::create(AVFoundationErrorDomain, AVErrorUnknown,
                        {{NSLocalizedDescriptionKey, "A player item needs an asset."}}));
  }
  return std::make_shared<PlayerItem>(std::move(asset));
}

}  // namespace zaffo
