// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/media/output/AudioDevice.h"

namespace zaffo::media {

/// Opens the system's default sound device: an OpenAudioDevice. The sound server moves the stream
/// when another device becomes the default. Null when there is none, and while a TimeSource
/// replaces the machine's clock, since a real device keeps the machine's time.
[[nodiscard]] std::unique_ptr<AudioDevice> openCubebDevice(int sampleRate,
                                                           AudioDeviceClient& client);

}  // namespace zaffo::media
