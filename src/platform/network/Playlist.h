// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/network/AddressRules.h"

namespace zaffo::network {

/// A part of a resource; all of it without a length.
struct ByteRange {
  int64_t offset = 0;
  std::optional<int64_t> length;
};

/// One AES-128 key; no address where segments are not encrypted.
struct SegmentKey {
  URL address;
  std::optional<std::array<uint8_t, 16>> vector;  ///< the segment's number where it is not given
};

/// What fragmented MP4 segments begin with.
struct SegmentHeader {
  URL address;
  ByteRange range;
};

struct MediaSegment {
  URL address;
  ByteRange range;
  double seconds = 0;
  std::string title;
  int64_t number = 0;
  bool isDiscontinuous = false;
  SegmentKey key;
  std::optional<SegmentHeader> header;
};

/// One way to have the same media (EXT-X-STREAM-INF).
struct Variant {
  URL address;
  int64_t bitsPerSecond = 0;
  int width = 0, height = 0;
  std::string codecs, audioGroup;
};

/// Alternate media, as sound in another language (EXT-X-MEDIA).
struct Alternate {
  std::string type, group, name, language;
  URL address;  ///< null where it lies within the variants
  bool isDefault = false;
};

/// An m3u8 or a plain M3U, parsed: either variants, or segments, or the clips of a plain list, as
/// segments with their titles. Every address in it keeps the rules and is absolute.
struct Playlist {
  enum class Kind { Master, Media, Plain };

  static constexpr std::size_t kMostBytes = std::size_t{4} << 20;
  static constexpr std::size_t kMostEntries = 50'000;
  static constexpr std::size_t kLongestLine = 16'384;

  Kind kind = Kind::Plain;
  std::vector<Variant> variants;
  std::vector<Alternate> alternates;
  std::vector<MediaSegment> segments;
  double targetSeconds = 0;
  bool isEnded = false;  ///< no segment will follow

  /// Reads `text`, which came from `base`. Fails on what is no playlist, breaks a bound,
  /// contradicts itself, is encrypted in another way, or names an address that it must not. Pure.
  /// Thread: any.
  [[nodiscard]] static Result<Playlist> parse(std::string_view text, const URL& base,
                                              const AddressRules& rules = {});
};

}  // namespace zaffo::network
