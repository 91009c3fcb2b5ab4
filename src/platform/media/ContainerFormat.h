#pragma once

#include <cstdint>
#include <span>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

/// A container that is played, recognised by its first bytes.
struct ContainerFormat {
  const char* name = nullptr;  ///< FFmpeg's name of the demuxer
  /// Whether the header tells all that a decoder needs, so that no packet has to be looked at.
  bool describesItself = false;
  /// Whether the header names every sample of the file.
  bool hasCompleteIndex = false;

  /// The format of a file that starts with `head` (2 KiB are enough), or null. Playlists, scripts,
  /// image sequences, subtitles and everything else that could name other files are not on the
  /// list.
  [[nodiscard]] static const ContainerFormat* recognise(std::span<const uint8_t> head);
};

}  // namespace zaffo::media
