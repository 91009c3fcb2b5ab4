// SPDX-License-Identifier: Apache-2.0
#include "platform/media/codec/FramePool.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <utility>

#include "platform/media/SpareMappings.h"

namespace zaffo::media {
namespace {

/// Vector code reads and writes up to this much beyond a row's last pixel.
constexpr std::size_t kAlignment = 64;
constexpr std::size_t kPadding = kAlignment + 16;

std::size_t aligned(std::size_t bytes) {
  return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

/// Whether frames of this format are rows of pixels in memory, with nothing beside them.
bool isPlain(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return d && !(d->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_PAL));
}

}  // namespace

struct FramePool::Layout {
  std::array<int, 4> strides{};
  std::array<std::size_t, 4> offsets{};
  std::array<bool, 4> used{};
  std::size_t bytes = 0;

  /// Rows as long as it takes for each plane's to be a multiple of its alignment.
  [[nodiscard]] int plan(AVPixelFormat format, int width, int height,
                         const std::array<int, AV_NUM_DATA_POINTERS>& alignments) {
    for (bool isAligned = false; !isAligned;) {
      if (const int result = av_image_fill_linesizes(strides.data(), format, width); result < 0) {
        return result;
      }
      width += width & -width;  // the next width that is a multiple of more
      isAligned = true;
      for (std::size_t i = 0; i < strides.size(); ++i) {
        isAligned = isAligned && strides[i] % std::max(alignments[i], 1) == 0;
      }
    }
    std::array<std::ptrdiff_t, 4> rows{};
    std::ranges::copy(strides, rows.begin());
    std::array<std::size_t, 4> sizes{};
    const int result = av_image_fill_plane_sizes(sizes.data(), format, height, rows.data());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      offsets[i] = bytes;
      used[i] = sizes[i] > 0;
      if (used[i]) bytes += aligned(sizes[i] + kPadding);
    }
    return result;
  }
};

int FramePool::allocate(AVFrame& frame) {
  std::array<int, AV_NUM_DATA_POINTERS> alignments;
  alignments.fill(kAlignment);
  Layout layout;
  const auto format = static_cast<AVPixelFormat>(frame.format);
  const int result = layout.plan(format, frame.width, frame.height, alignments);
  return result < 0 ? result : allocate(frame, layout);
}

int FramePool::allocate(AVCodecContext& codec, AVFrame& frame, int flags) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  const bool takesOurs = codec.codec->capabilities & AV_CODEC_CAP_DR1;
  if (codec.codec_type != AVMEDIA_TYPE_VIDEO || !takesOurs || !isPlain(format)) {
    return avcodec_default_get_buffer2(&codec, &frame, flags);
  }
  int width = frame.width, height = frame.height;
  std::array<int, AV_NUM_DATA_POINTERS> alignments{};
  avcodec_align_dimensions2(&codec, &width, &height, alignments.data());
  Layout layout;
  const int result = layout.plan(format, width, height, alignments);
  return result < 0 ? result : allocate(frame, layout);
}

int FramePool::allocate(AVFrame& frame, const Layout& layout) {
  auto block = std::make_unique<Block>(Block{shared_from_this(), take(layout.bytes)});
  if (!block->memory) return AVERROR(ENOMEM);
  uint8_t* const data = block->memory.data();
  frame.buf[0] = av_buffer_create(
      data, layout.bytes,
      [](void* opaque, uint8_t*) {
        const std::unique_ptr<Block> gone(static_cast<Block*>(opaque));
        gone->pool->giveBack(std::move(gone->memory));
      },
      block.get(), 0);
  if (!frame.buf[0]) return AVERROR(ENOMEM);
  static_cast<void>(block.release());  // the buffer's
  for (std::size_t i = 0; i < layout.strides.size(); ++i) {
    frame.data[i] = layout.used[i] ? data + layout.offsets[i] : nullptr;
    frame.linesize[i] = layout.strides[i];
  }
  frame.extended_data = frame.data;
  return 0;
}

MappedMemory FramePool::take(std::size_t bytes) {
  std::vector<MappedMemory> former;  // goes without the lock
  {
    const MutexLock lock(sparesMutex_);
    if (std::exchange(spareBytes_, bytes) != bytes) former.swap(spares_);
    if (!spares_.empty()) {
      MappedMemory spare = std::move(spares_.back());
      spares_.pop_back();
      return spare;
    }
  }
  if (MappedMemory spare = SpareMappings::shared().take(bytes)) return spare;
  return MappedMemory(bytes, MappedMemory::Pages::AtOnce);
}

void FramePool::giveBack(MappedMemory memory) {
  {
    const MutexLock lock(sparesMutex_);
    if (!closed_ && memory.size() == spareBytes_ && spares_.size() < kMostSpares) {
      return spares_.push_back(std::move(memory));
    }
  }
  SpareMappings::shared().keep(std::move(memory));
}

void FramePool::close() {
  std::vector<MappedMemory> unused;
  {
    const MutexLock lock(sparesMutex_);
    closed_ = true;
    unused.swap(spares_);
  }
  for (MappedMemory& memory : unused) SpareMappings::shared().keep(std::move(memory));
}

}  // namespace zaffo::media
