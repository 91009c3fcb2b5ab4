// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "platform/media/source/ReadTask.h"

namespace zaffo::media {

/// The IDs of the tracks of an MP4 or QuickTime file that its header tells to be encrypted. FFmpeg
/// does not pass that on: it calls such a track one of the codec that was encrypted. Reads the
/// headers of the boxes on the way, some hundred bytes; nothing in a file of another format or one
/// that is damaged there. Called in the work of `task`.
[[nodiscard]] std::vector<int> encryptedTracks(ReadTask& task);

}  // namespace zaffo::media
