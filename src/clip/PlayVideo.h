// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "companion/ZFCancelCommand.h"
#include "companion/ZFVideo.h"
#include "pool/PlayerManager.h"

namespace zaffo {

/// Plays a video in a player of the pool: has the video load its item unless the pool holds it
/// already, asks the pool for a player, and sets that going just before `completion` gets its
/// handle. Keep the handle for as long as the video is seen; set its rate to 0 before letting it
/// go.
///
/// `completion` (may be empty: then nothing plays) is called once, on the main thread: inside the
/// call when the pool holds the video, else later. A failure says what the file is guilty of, as
/// the thumbnail's does, or what the pool answered; "No player available for this video" when
/// another player would have to be taken from its users. It is not called once the returned command
/// (never null) has been cancelled, nor when the pool is gone by then. Thread: main.
ZAFFO_EXPORT ZFCancelCommandPtr
play(const std::shared_ptr<PlayerManager>& pool, std::shared_ptr<ZFVideo> video,
     std::function<void(const PlayerLoadResult& result)> completion);

}  // namespace zaffo
