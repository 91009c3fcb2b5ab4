// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/FFmpegCommon.h"
#include "platform/media/MappedMemory.h"

namespace zaffo::media {

/// Where a decoder's frames lie: each in memory of its own, which goes back to the system and never
/// into the heap. A few that were let go wait for the next frames while the decoder plays; what is
/// left over, then or when frames outlive the decoder, becomes SpareMappings. Thread: any.
class FramePool : public std::enable_shared_from_this<FramePool> {
 public:
  /// As many frames as a burst decodes before others are let go again.
  static constexpr std::size_t kMostSpares = 3;

  [[nodiscard]] static std::shared_ptr<FramePool> create() {
    return std::shared_ptr<FramePool>(new FramePool);
  }

  /// Gives `frame`, whose format and size are set, its memory, as av_frame_get_buffer() would. 0 or
  /// an AVERROR.
  [[nodiscard]] int allocate(AVFrame& frame) ZAFFO_EXCLUDES(sparesMutex_);
  /// The same, laid out as `codec` wants it to be; for its get_buffer2.
  [[nodiscard]] int allocate(AVCodecContext& codec, AVFrame& frame, int flags)
      ZAFFO_EXCLUDES(sparesMutex_);

  /// No more frames come: nothing waits for one from now on.
  void close() ZAFFO_EXCLUDES(sparesMutex_);

 private:
  /// Of all planes, in one piece.
  struct Layout;
  /// Memory in use by a frame.
  struct Block {
    std::shared_ptr<FramePool> pool;
    MappedMemory memory;
  };

  FramePool() = default;
  [[nodiscard]] int allocate(AVFrame& frame, const Layout& layout) ZAFFO_EXCLUDES(sparesMutex_);
  [[nodiscard]] MappedMemory take(std::size_t bytes) ZAFFO_EXCLUDES(sparesMutex_);
  void giveBack(MappedMemory memory) ZAFFO_EXCLUDES(sparesMutex_);

  Mutex sparesMutex_;
  std::vector<MappedMemory> spares_ ZAFFO_GUARDED_BY(sparesMutex_);  ///< all of one size
  std::size_t spareBytes_ ZAFFO_GUARDED_BY(sparesMutex_) = 0;        ///< what was asked for last
  bool closed_ ZAFFO_GUARDED_BY(sparesMutex_) = false;
};

}  // namespace zaffo::media
