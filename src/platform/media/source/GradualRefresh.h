// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// Whether an H.264 sample begins a gradual refresh: the picture is renewed a part at a time, and
/// what is decoded from there on is whole only from the recovery point on, which B frames may put
/// behind the next such sample. Containers mark them as sync samples. `parameters`: of the track.
/// Thread: any.
[[nodiscard]] bool beginsGradualRefresh(const AVPacket& packet,
                                        const AVCodecParameters& parameters);

}  // namespace zaffo::media
