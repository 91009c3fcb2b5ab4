#pragma once

#include <cstddef>

namespace zaffo::media {

/// When to decode ahead: once hardly any decoded frame waits behind the one on show, until a few
/// do. A decoder that works in bursts finds its data still in the cache. Thread: one at a time.
class DecodeBurst {
 public:
  static constexpr std::size_t kFewFrames = 1;
  static constexpr std::size_t kManyFrames = 4;

  /// `queued` frames wait; `more` than usual are to wait, for what takes long to decode. A burst in
  /// the midst of a decode-only run goes on until that is through.
  void update(std::size_t queued, std::size_t more, bool isInDecodeOnlyRun) {
    if (isOn_ && isInDecodeOnlyRun) return;
    if (queued <= kFewFrames + more) isOn_ = true;
    if (queued >= kManyFrames + more) isOn_ = false;
  }
  void stop() { isOn_ = false; }
  /// Whether to decode another frame.
  [[nodiscard]] bool isOn() const { return isOn_; }

 private:
  bool isOn_ = false;
};

}  // namespace zaffo::media
