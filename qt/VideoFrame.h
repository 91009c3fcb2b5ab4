// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ZaffoPlayback/clip/PictureOutput.h>

#include <QtMultimedia/QVideoFrame>

namespace zaffo::qt {

/// A picture as a QVideoFrame: a copy of the planes of its clean aperture, to be converted by
/// whoever draws it. What Qt has no words for (pixels that are not square, odd sides, formats that
/// it lacks), or gets wrong in the version that is loaded, becomes BGRA, upright. Invalid when
/// there is nothing to be seen. Thread: any.
[[nodiscard]] QVideoFrame makeVideoFrame(const OutputPicture& picture);

}  // namespace zaffo::qt
