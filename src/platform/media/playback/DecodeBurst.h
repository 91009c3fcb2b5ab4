// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace zaffo::media {

/// When to decode ahead: once hardly any decoded frame waits behind the one on show, until a few
/// do. A decoder that works in bursts finds its data still in the cache. Thread: one at a time.
class DecodeBurst {
 public:
  static constexpr std::size_t kFewFrames = 1;
  static constexpr std::size_t kManyFrames = 4;
  /// Small frames that nobody draws are decoded in longer bursts, so that less wakes for them.
  static constexpr std::size_t kManyUnseenFrames = 8;
  static constexpr int64_t kFewPixels = int64_t{1280} * 720;

  [[nodiscard]] static constexpr std::size_t manyFrames(bool somebodyDraws, int64_t pixels) {
    return somebodyDraws || pixels > kFewPixels ? kManyFrames : kManyUnseenFrames;
  }

  /// `queued` frames wait, of `many` at the most; `more` than usual are to wait, for what takes
  /// long to decode. A burst in the midst of a decode-only run goes on until that is through.
  void update(std::size_t queued, std::size_t more, bool isInDecodeOnlyRun,
              std::size_t many = kManyFrames) {
    if (isOn_ && isInDecodeOnlyRun) return;
    if (queued <= kFewFrames + more) isOn_ = true;
    if (queued >= many + more) isOn_ = false;
  }
  void stop() { isOn_ = false; }
  /// Whether to decode another frame.
  [[nodiscard]] bool isOn() const { return isOn_; }

 private:
  bool isOn_ = false;
};

}  // namespace zaffo::media
