// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "platform/media/output/FadeTail.h"
#include "platform/media/output/RingMailbox.h"

namespace zaffo::media {

/// A change of volume from 0 to 1 takes this long: 10 ms at 48 kHz.
inline constexpr int kVolumeRampFrames = 480;

/// Both sides of one input of the mix: the writer fills rings, the render side plays the latest one
/// and fades out the one before it. A mailbox hands them over, so that neither side ever waits for
/// the other. The render side allocates nothing, locks nothing and frees nothing.
class InputChannel {
 public:
  /// `consumed`: every output frame below it has been rendered. Outlives the channel.
  InputChannel(int64_t capacityFrames, const std::atomic<int64_t>& consumed);

  // Writer side: one thread at a time.
  void restart(int64_t firstOutputFrame);
  int64_t write(std::span<const float> interleaved);
  [[nodiscard]] int64_t writable() const;
  [[nodiscard]] int64_t nextOutputFrame() const;

  // Any thread.
  void stop();
  void setVolume(float volume);
  /// Whether it was silent at the last render and stays so until it is restarted.
  [[nodiscard]] bool silent() const;

  // Render side: one thread at a time.
  /// Adds output frames from `first` on to `out`. Returns whether the channel is in use.
  bool mix(int64_t first, std::span<float> out);
  /// The output stands still for this long: fades out what sounds. mix() fades it in again.
  void mixPause(std::span<float> out);

 private:
  void turnToLatest();
  void leaveRing();
  void cut();
  void mixFrames(int64_t first, std::span<float> out);
  void mixRamping(std::span<const float> in, std::span<float> out);
  void reportInUse(bool inUse);

  const std::atomic<int64_t>& consumed_;
  RingMailbox mailbox_;
  std::atomic<bool> inUse_{false};
  std::atomic<float> volume_{1.0f};

  // Writer side.
  FrameRing* writing_ = nullptr;

  // Render side.
  const FrameRing* ring_ = nullptr;
  int64_t position_ = 0;  ///< the frame that follows the last one mixed
  int presence_ = 0;      ///< frames of the fade-in done, up to kFadeFrames; 0 while silent
  float gain_ = 1.0f;
  float last_[2] = {0.0f, 0.0f};
  FadeTail tail_;
};

}  // namespace zaffo::media
