#pragma once

#include "platform/avfoundation/AVPlayerLayer.h"

namespace zaffo {

/// Where and how a layer shows a picture: upright after `preferredTransform`, in its own aspect or
/// not as `gravity` says, in `bounds`. The buffer is not null.
[[nodiscard]] LayerPicture placePicture(CVPixelBufferPtr buffer,
                                        CGAffineTransform preferredTransform, CGRect bounds,
                                        AVLayerVideoGravity gravity);

}  // namespace zaffo
