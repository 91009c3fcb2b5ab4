// SPDX-License-Identifier: Apache-2.0
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
  /// Whether it tells when samples are decoded, or only when they are presented.
  bool tellsDecodeTimes = false;

  /// The format of a file whose first bytes (12 are enough) are a magic word, or null. Playlists,
  /// scripts, image sequences, subtitles and everything else that could name other files are not
  /// known here.
  [[nodiscard]] static const ContainerFormat* byMagic(std::span<const uint8_t> head);
  /// The format of a raw stream (MP3, ADTS, AC-3) by a longer look at it, or null.
  [[nodiscard]] static const ContainerFormat* byContent(std::span<const uint8_t> bytes);
  /// The format of a stream's segment by its first bytes (377 are enough): fragmented MP4, MPEG-TS,
  /// or raw sound; or null. MPEG-TS is for segments alone: it has no index to find a place by.
  [[nodiscard]] static const ContainerFormat* ofSegment(std::span<const uint8_t> bytes);
  /// Bytes of the ID3 tag that a file starts with; 0 when there is none. The music follows it.
  [[nodiscard]] static int64_t tagBytes(std::span<const uint8_t> head);
};

}  // namespace zaffo::media
