// SPDX-License-Identifier: Apache-2.0
#pragma once

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include <array>
#include <cstdint>

#include "platform/media/Sample.h"

namespace zaffo::media {

/// What a decoder must remember of the samples it was sent until their frames come out. Packets are
/// numbered, the number travels through the decoder in place of the timestamp, and brings back the
/// exact times of a sample, whatever its time base and however often its timestamps repeat (they
/// do in compositions).
class SampleTimes {
 public:
  struct Entry {
    int64_t number = -1;
    CMTime presentation;
    CMTime duration;
    bool decodeOnly = false;
    CMTime heardFrom;
    CMTime heardUntil;
    uint32_t trimStart = 0;  ///< sound: frames not to be heard, at the sample's start
    uint32_t trimEnd = 0;    ///< and at its end
  };

  /// The number for a sample that is about to be sent.
  [[nodiscard]] int64_t remember(const Sample& sample) {
    Entry& entry = entries_[index(next_)];
    entry = {next_,
             sample.presentation,
             sample.duration,
             sample.decodeOnly,
             sample.heardFrom,
             sample.heardUntil,
             0,
             0};
    std::size_t bytes = 0;
    const uint8_t* trim =
        av_packet_get_side_data(sample.packet.get(), AV_PKT_DATA_SKIP_SAMPLES, &bytes);
    if (trim && bytes >= 8) {
      entry.trimStart = AV_RL32(trim);
      entry.trimEnd = AV_RL32(trim + 4);
    }
    return next_++;
  }
  /// The number that the next sample will have.
  [[nodiscard]] int64_t next() const { return next_; }
  /// Takes the last number back: the sample was not accepted.
  void forgetLast() { --next_; }
  /// The sample of a number that a frame came out with; null when it is none of ours.
  [[nodiscard]] const Entry* find(int64_t number) const {
    if (number < 0) return nullptr;
    const Entry& entry = entries_[index(number)];
    return entry.number == number ? &entry : nullptr;
  }

 private:
  // More than any decoder delays: 16 frames of reordering, two fields each, and frame threads.
  static constexpr std::size_t kSize = 64;
  static std::size_t index(int64_t number) { return static_cast<std::size_t>(number) % kSize; }

  std::array<Entry, kSize> entries_{};
  int64_t next_ = 0;
};

}  // namespace zaffo::media
