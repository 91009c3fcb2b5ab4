// SPDX-License-Identifier: Apache-2.0

// Parses the bytes as a playlist that came by https and by http.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "platform/network/Playlist.h"

namespace zaffo::network {
namespace {

using fuzz::require;

void examineAddress(const URL& address, const URL& base) {
  require(address && isRemote(*address), "an address is on the network");
  require(base->scheme() == "http" || address->scheme() == "https", "no address is less secure");
}

void examineRange(const ByteRange& range) {
  require(range.offset >= 0, "a range begins in the resource");
  require(!range.length || *range.length > 0, "a range is not empty");
  require(!range.length || range.offset + *range.length > 0, "a range ends");
}

void examine(const std::string& text, const URL& base) {
  const auto playlist = Playlist::parse(text, base);
  if (!playlist) return require(playlist.error() != nullptr, "a refusal says why");
  const bool isMaster = playlist->kind == Playlist::Kind::Master;
  require(isMaster == !playlist->variants.empty(), "variants make a master");
  require(!isMaster || playlist->segments.empty(), "a master has no segments");
  require(playlist->segments.size() <= Playlist::kMostEntries, "entries are bounded");
  for (const Variant& variant : playlist->variants) examineAddress(variant.address, base);
  for (const Alternate& alternate : playlist->alternates) {
    if (alternate.address) examineAddress(alternate.address, base);
  }
  for (const MediaSegment& segment : playlist->segments) {
    examineAddress(segment.address, base);
    examineRange(segment.range);
    require(segment.seconds >= 0, "no segment is shorter than nothing");
    if (segment.key.address) examineAddress(segment.key.address, base);
    if (!segment.header) continue;
    examineAddress(segment.header->address, base);
    examineRange(segment.header->range);
  }
}

}  // namespace
}  // namespace zaffo::network

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace zaffo;
  const std::string text(data, data + size);
  network::examine(text, NSURL::URLWithString("https://host/a/b.m3u8?c"));
  network::examine(text, NSURL::URLWithString("http://host/a/b.m3u8"));
  return 0;
}
