// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Playlist.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/network/NetworkError.h"
#include "platform/network/PlaylistAttributes.h"

namespace zaffo::network {

namespace {

NSErrorPtr damaged(const std::string& why) {
  return networkError(NSURLErrorCannotDecodeRawData, "The playlist cannot be played: " + why);
}

bool take(std::string_view& line, std::string_view tag) {
  if (!line.starts_with(tag)) return false;
  line.remove_prefix(tag.size());
  return true;
}

std::string_view trimmed(std::string_view line) {
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
    line.remove_suffix(1);
  }
  return line;
}

std::string valueOf(const PlaylistAttributes& attributes, std::string_view name) {
  const auto found = attributes.find(name);
  return found == attributes.end() ? std::string() : found->second;
}

/// Reads line after line; the first mistake ends it.
class Parser {
 public:
  Parser(const URL& base, const AddressRules& rules) : base_(base), rules_(rules) {}

  Result<Playlist> parse(std::string_view text) {
    if (text.size() > Playlist::kMostBytes) return damaged("it is too long.");
    take(text, "\xEF\xBB\xBF");
    while (!text.empty() && !error_) {
      const auto end = text.find('\n');
      const std::string_view line = text.substr(0, end);
      if (line.size() > Playlist::kLongestLine) fail("a line of it is too long.");
      if (!error_) takeLine(trimmed(line));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    if (!error_) finish();
    if (error_) return error_;
    return std::move(playlist_);
  }

 private:
  void takeLine(std::string_view line) {
    if (line.empty()) return;
    if (line.front() != '#') return takeAddress(std::string(line));
    if (line == "#EXTM3U" && !isHls_ && entries_ == 0) isMarked_ = true;
    if (take(line, "#EXTINF:")) return takeDuration(line);
    if (take(line, "#EXT-X-")) takeTag(line);
  }

  void takeTag(std::string_view line) {
    // Only what the newer form has makes a list one of segments or variants.
    isHls_ = true;
    if (take(line, "STREAM-INF:")) return takeVariant(line);
    if (take(line, "MEDIA-SEQUENCE:")) return takeNumber(line);
    if (take(line, "MEDIA:")) return takeAlternate(line);
    if (take(line, "TARGETDURATION:")) return takeTarget(line);
    if (take(line, "BYTERANGE:")) return takeRange(line);
    if (take(line, "MAP:")) return takeHeader(line);
    if (take(line, "KEY:")) return takeKey(line);
    if (line == "DISCONTINUITY") segment_.isDiscontinuous = true;
    if (line == "ENDLIST") playlist_.isEnded = true;
  }

  void takeDuration(std::string_view line) {
    const auto comma = line.find(',');
    const std::string_view number = line.substr(0, std::min(comma, line.find(' ')));
    segment_.seconds = parseSeconds(number).value_or(0);  // a plain list says -1 for unknown
    if (comma != std::string_view::npos) segment_.title = line.substr(comma + 1);
  }

  void takeVariant(std::string_view line) {
    const auto attributes = parseAttributes(line);
    Variant variant;
    variant.bitsPerSecond = parseWhole(valueOf(attributes, "BANDWIDTH")).value_or(0);
    variant.codecs = valueOf(attributes, "CODECS");
    variant.audioGroup = valueOf(attributes, "AUDIO");
    const std::string size = valueOf(attributes, "RESOLUTION");
    const auto cross = size.find('x');
    if (cross != std::string::npos) {
      constexpr int64_t kMost = 1 << 16;
      const std::string_view text = size;
      const auto width = parseWhole(text.substr(0, cross));
      const auto height = parseWhole(text.substr(cross + 1));
      if (!width || !height || *width > kMost || *height > kMost) return fail("a size is wrong.");
      variant.width = static_cast<int>(*width);
      variant.height = static_cast<int>(*height);
    }
    variant_ = std::move(variant);
  }

  void takeAlternate(std::string_view line) {
    const auto attributes = parseAttributes(line);
    Alternate alternate;
    alternate.type = valueOf(attributes, "TYPE");
    alternate.group = valueOf(attributes, "GROUP-ID");
    alternate.name = valueOf(attributes, "NAME");
    alternate.language = valueOf(attributes, "LANGUAGE");
    alternate.isDefault = valueOf(attributes, "DEFAULT") == "YES";
    const std::string address = valueOf(attributes, "URI");
    if (!address.empty()) alternate.address = resolve(address);
    if (++entries_ > Playlist::kMostEntries) return fail("it has too many entries.");
    if (!error_) playlist_.alternates.push_back(std::move(alternate));
  }

  void takeNumber(std::string_view line) {
    const auto number = parseWhole(line);
    constexpr auto kMost =
        std::numeric_limits<int64_t>::max() - static_cast<int64_t>(Playlist::kMostEntries);
    if (!number || *number > kMost || !playlist_.segments.empty()) {
      return fail("the number of its first segment is wrong.");
    }
    number_ = *number;
  }

  void takeTarget(std::string_view line) {
    const auto seconds = parseSeconds(line);
    if (!seconds) return fail("its target duration is wrong.");
    playlist_.targetSeconds = *seconds;
  }

  void takeRange(std::string_view line) {
    const auto range = parseByteRange(line, -1);
    if (!range) return fail("a byte range of it is wrong.");
    segment_.range = *range;
  }

  void takeHeader(std::string_view line) {
    const auto attributes = parseAttributes(line);
    const URL address = resolve(valueOf(attributes, "URI"));
    if (!address) return;
    header_ = SegmentHeader{address, {}};
    const std::string range = valueOf(attributes, "BYTERANGE");
    if (range.empty()) return;
    const auto parsed = parseByteRange(range, 0);
    if (!parsed) return fail("a byte range of it is wrong.");
    header_->range = *parsed;
  }

  void takeKey(std::string_view line) {
    const auto attributes = parseAttributes(line);
    const std::string method = valueOf(attributes, "METHOD");
    key_ = {};
    if (method == "NONE") return;
    if (method != "AES-128") return fail("it is encrypted.");
    key_.address = resolve(valueOf(attributes, "URI"));
    const std::string vector = valueOf(attributes, "IV");
    if (vector.empty()) return;
    key_.vector = parseVector(vector);
    if (!key_.vector) fail("a key of it is wrong.");
  }

  void takeAddress(const std::string& line) {
    const URL address = resolve(line);
    if (!address) return;
    if (++entries_ > Playlist::kMostEntries) return fail("it has too many entries.");
    if (variant_) {
      variant_->address = address;
      playlist_.variants.push_back(*std::exchange(variant_, std::nullopt));
      return;
    }
    takeSegment(address);
  }

  void takeSegment(const URL& address) {
    segment_.address = address;
    segment_.number = number_++;
    segment_.key = key_;
    segment_.header = header_;
    if (segment_.range.offset < 0 && !continueRange()) return fail("a byte range has no start.");
    playlist_.segments.push_back(std::exchange(segment_, {}));
  }

  /// A range without a start follows the one before, of the same resource.
  [[nodiscard]] bool continueRange() {
    if (playlist_.segments.empty()) return false;
    const MediaSegment& before = playlist_.segments.back();
    const bool isSame = before.address->absoluteString() == segment_.address->absoluteString();
    if (!isSame || !before.range.length) return false;
    segment_.range.offset = before.range.offset + *before.range.length;
    return segment_.range.offset <= std::numeric_limits<int64_t>::max() - *segment_.range.length;
  }

  void finish() {
    using Kind = Playlist::Kind;
    const bool isMaster = !playlist_.variants.empty();
    if (isMaster && !playlist_.segments.empty()) return fail("it has both variants and segments.");
    if (isHls_ && !isMarked_) return fail("it does not begin as one.");
    if (!isMaster && playlist_.segments.empty() && !isHls_) return fail("there is nothing in it.");
    playlist_.kind = isMaster ? Kind::Master : isHls_ ? Kind::Media : Kind::Plain;
  }

  /// Null, with the error set, when it must not be used.
  [[nodiscard]] URL resolve(const std::string& text) {
    const auto address =
        text.empty() ? Result<URL>(damaged("an address is missing.")) : rules_.resolve(text, base_);
    if (address) return *address;
    error_ = address.error();
    return nullptr;
  }

  void fail(const std::string& why) { error_ = damaged(why); }

  const URL& base_;
  const AddressRules& rules_;
  Playlist playlist_;
  NSErrorPtr error_;
  MediaSegment segment_;  // what is known of the next one
  std::optional<Variant> variant_;
  SegmentKey key_;
  std::optional<SegmentHeader> header_;
  int64_t number_ = 0;
  std::size_t entries_ = 0;
  bool isMarked_ = false, isHls_ = false;
};

}  // namespace

Result<Playlist> Playlist::parse(std::string_view text, const URL& base,
                                 const AddressRules& rules) {
  return Parser(base, rules).parse(text);
}

}  // namespace zaffo::network
