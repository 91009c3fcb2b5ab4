// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/dispatch/SerialQueue.h"

namespace zaffo {

/// How long a step of decoding pictures takes.
enum class PictureLoad {
  Light,  ///< a few milliseconds
  Heavy,  ///< perhaps longer than a picture is shown; nothing interrupts it
};

/// That of pictures of so many pixels: above 1080p a step may take longer than its picture's time.
[[nodiscard]] constexpr PictureLoad pictureLoad(int64_t pixels) {
  constexpr int64_t kLightPixels = int64_t{1920} * 1088;
  return pixels > kLightPixels ? PictureLoad::Heavy : PictureLoad::Light;
}

/// A serial queue on which pictures are decoded, Light at first. All of them together leave a
/// worker of the shared pool to others, Heavy ones a further one to the Light ones where there are
/// cores enough; and what waits on other queues starts first.
[[nodiscard]] std::shared_ptr<SerialQueue> makePictureQueue(std::string label);

/// What `queue` is from its next turn on. Thread: any.
void setPictureLoad(SerialQueue& queue, PictureLoad load);

/// A serial queue on which sound is decoded: it starts before anything else that waits.
[[nodiscard]] DispatchQueuePtr makeSoundQueue(std::string label);

}  // namespace zaffo
