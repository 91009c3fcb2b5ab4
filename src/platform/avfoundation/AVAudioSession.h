// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/foundation/NSError.h"

// Xlib has a macro of this name, which is none of an enumerator's.
#pragma push_macro("None")
#undef None

namespace zaffo {

/// Posted when the platform's media services were restarted and every player is of no use.
inline constexpr const char* AVAudioSessionMediaServicesWereResetNotification =
    "AVAudioSessionMediaServicesWereResetNotification";

/// The process's sound: where it goes, and a record of it. Thread: main.
class ZAFFO_EXPORT AVAudioSession {
 public:
  [[nodiscard]] static AVAudioSession& sharedInstance();

  enum class Output {
    Device,  ///< the default sound device; silence on the monotonic clock where there is none
    None,    ///< silence on the monotonic clock
  };
  /// Device by default. Playback goes on through a change.
  void setOutput(Output output);

  /// Writes all that goes to the sound device from now on to a WAV file (32-bit float, stereo, the
  /// output's sample rate), until the process ends or stopRecording. Returns what failed, or null.
  [[nodiscard]] NSErrorPtr startRecording(const std::string& path);
  /// Completes the file; waits for the last samples to be written.
  void stopRecording();

  /// Frames per second of the output.
  [[nodiscard]] int sampleRate() const;

  /// Restarts the media services: closes the device, ends every player's playback, then posts
  /// AVAudioSessionMediaServicesWereResetNotification on the main thread before it returns.
  void resetMediaServices();
};

}  // namespace zaffo

#pragma pop_macro("None")
