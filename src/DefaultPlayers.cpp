// SPDX-License-Identifier: Apache-2.0

// Gives the pool this library's own players. It lies above pool/, which knows players only by their
// contract, just as native/ and fast/ know nothing else of the pool.

#include "fast/PlayerFast.h"
#include "native/AVPlayerLayerContainer.h"
#include "native/PlayerNative.h"
#include "native/PlayerNativeOutputView.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"

namespace zaffo {

std::shared_ptr<PlayerManager> PlayerManager::create() {
  return create([](PlayerKind kind) -> std::shared_ptr<MutablePlayer> {
    if (kind == PlayerKind::Fast) return PlayerFast::create();
    return PlayerNative::create();
  });
}

std::shared_ptr<AVPlayerLayerContainer> PlayerManager::playerLayerContainerForVideo(
    const std::shared_ptr<ZFVideo>& video, AVPlayerItemLoaderOptions options) {
  const auto handle = player(video, options).player();
  if (!handle) return nullptr;
  const auto view = std::dynamic_pointer_cast<PlayerNativeOutputView>(handle->outputView());
  if (!view) return nullptr;
  view->removeFromSuperview();
  return std::make_shared<AVPlayerLayerContainer>(handle, view->playerLayer());
}

}  // namespace zaffo
