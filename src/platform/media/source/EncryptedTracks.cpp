// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/EncryptedTracks.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/media/source/BoxReader.h"

namespace zaffo::media {
namespace {

/// The entries of a description of samples say what kind they are; encrypted ones hide the codec.
bool isEncrypted(const BoxReader& reader, const Box& track) {
  constexpr std::array<std::string_view, 4> kEncrypted{"encv", "enca", "drmi", "drms"};
  const auto description = reader.find(track, {"mdia", "minf", "stbl", "stsd"});
  bool found = false;
  // A version, flags and the number of entries come first.
  if (description)
    reader.each(description->begin + 8, description->end, [&](const Box& entry) {
      found = std::ranges::any_of(kEncrypted, [&](auto kind) { return entry.is(kind); });
      return found;
    });
  return found;
}

}  // namespace

std::vector<int> encryptedTracks(ReadTask& task) {
  const BoxReader reader(task);
  std::vector<int> tracks;
  if (const auto movie = reader.find(reader.whole(), "moov")) {
    reader.each(movie->begin, movie->end, [&](const Box& box) {
      if (box.is("trak") && isEncrypted(reader, box)) tracks.push_back(reader.trackID(box));
      return false;
    });
  }
  return tracks;
}

}  // namespace zaffo::media
