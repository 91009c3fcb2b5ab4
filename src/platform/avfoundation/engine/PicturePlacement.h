// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/avfoundation/AVPlayerLayer.h"

namespace zaffo {

/// Where and how a layer shows a picture: turned upright by `preferredTransform` and fitted into
/// `bounds` as `gravity` says. The buffer is not null.
[[nodiscard]] LayerPicture placePicture(CVPixelBufferPtr buffer,
                                        CGAffineTransform preferredTransform, CGRect bounds,
                                        AVLayerVideoGravity gravity);

}  // namespace zaffo
